// Counts the program's platform calls that can fail (all but a few that cost nothing). It makes no
// more calls than the bare program, which makes only those that the work requires; and so many for
// each piece of the work.

#include "bare.h"
#include "fs/file_operations.h"
#include "proc/process_entry.h"
#include "proc/services.h"
#include "registry/registry_setting.h"
#include "support/console_capture.h"
#include "support/file_contents.h"
#include "support/temporary_directory.h"
#include "sweep/faulty_run.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace {

using test::FaultInjector;
using test::InstalledProduct;
using test::NoFault;
using test::PlatformCall;

using Counts = std::map<std::string, std::size_t>;

// The calls of a run, by function.
std::vector<std::string> CallsOf(const std::wstring& option, InstalledProduct::Program program) {
    InstalledProduct product;
    const FaultInjector injector(product.TaskService(), &NoFault);
    product.Run(option, program);
    std::vector<std::string> calls;
    for (const PlatformCall& call : injector.Calls()) {
        calls.emplace_back(call.function);
    }
    return calls;
}

// The calls of an action on the machine, by function.
Counts CountsOf(const std::function<void()>& prepare, const std::function<void()>& action) {
    InstalledProduct product;
    prepare();
    const FaultInjector injector(product.TaskService(), &NoFault);
    test::Printed(action);
    Counts counts;
    for (const PlatformCall& call : injector.Calls()) {
        ++counts[std::string(call.function)];
    }
    return counts;
}

Counts CountsOf(const std::function<void()>& action) {
    return CountsOf([] {}, action);
}

// The cost of one more entry: the calls with it, minus the calls without it.
Counts Difference(Counts with, const Counts& without) {
    for (const auto& [function, count] : without) {
        with[function] -= count;
    }
    std::erase_if(with, [](const auto& each) { return each.second == 0; });
    return with;
}

std::size_t Sum(const Counts& counts) {
    std::size_t sum = 0;
    for (const auto& [function, count] : counts) {
        sum += count;
    }
    return sum;
}

// Compares the calls for a piece of the work with those that it requires, and prints a line of the
// benchmarks' table.
void Compare(const std::string& piece, const Counts& made, const Counts& asked) {
    EXPECT_EQ(made, asked) << piece;
    std::string list;
    for (const auto& [function, count] : made) {
        list +=
            (list.empty() ? "" : ", ") + (count == 1 ? "" : std::to_string(count) + " ") + function;
    }
    std::cout << "platform calls | " << piece << " | " << Sum(made) << " | " << Sum(asked) << " | "
              << list << "\n";
}

class PlatformCalls : public testing::TestWithParam<const wchar_t*> {};

TEST_P(PlatformCalls, AreThoseOfTheBareProgramInItsOrder) {
    CallsOf(GetParam(), &RunProgram);  // fills what is looked up only once
    CallsOf(GetParam(), &RunBare);
    EXPECT_EQ(CallsOf(GetParam(), &RunProgram), CallsOf(GetParam(), &RunBare));
}

INSTANTIATE_TEST_SUITE_P(All, PlatformCalls,
                         testing::Values(L"", L"/STOP", L"/CONFIGURE", L"/START", L"/DISABLE",
                                         L"/?"));

// An addition to the image cache, which a run secures alone, and how many calls it adds.
Counts CallsForAnEntry(const std::function<void(const std::filesystem::path&)>& add,
                       InstalledProduct::Program program) {
    const wchar_t* const arguments[] = {L"Finaset.exe", L"/CONFIGURE"};
    const auto cache = [] {
        wchar_t data[MAX_PATH] = {};
        ::GetEnvironmentVariableW(L"ProgramData", data, MAX_PATH);
        return std::filesystem::path(data) / L"Tarsel\\ImageCache";
    };
    const auto run = [&] { program(2, arguments); };
    CountsOf(run);  // fills what is looked up only once
    const Counts without = CountsOf(run);
    std::filesystem::path added;
    const Counts with = CountsOf(
        [&] {
            added = cache() / L"added";
            add(added);
        },
        run);
    std::filesystem::remove_all(added);
    return Difference(with, without);
}

TEST(PlatformCallsOfAnEntry, AFileInASecuredDirectory) {
    const auto add = [](const std::filesystem::path& path) { test::PutFile(path, ""); };
    const Counts calls = CallsForAnEntry(add, &RunProgram);
    Compare("file in a secured directory", calls,
            Counts{{"FindNextFileW", 3},  // its links, the directories, the entries
                   {"ExpandEnvironmentStringsW", 3},
                   {"GetFileAttributesW", 1},
                   {"CreateFileW", 1},
                   {"GetFileInformationByHandle", 1},
                   {"CloseHandle", 1},
                   {"SetNamedSecurityInfoW", 1}});
    EXPECT_EQ(calls, CallsForAnEntry(add, &RunBare));
}

TEST(PlatformCallsOfAnEntry, ADirectoryInASecuredOne) {
    const auto add = [](const std::filesystem::path& path) {
        std::filesystem::create_directory(path);
    };
    const Counts calls = CallsForAnEntry(add, &RunProgram);
    // It does not open, and is searched for its directories, and for its entries.
    Compare("directory in a secured directory", calls,
            Counts{{"FindFirstFileW", 2},
                   {"FindNextFileW", 3 + 4},  // its "." is found first, its ".." next
                   {"FindClose", 2},
                   {"ExpandEnvironmentStringsW", 3 + 2},
                   {"GetFileAttributesW", 1},
                   {"CreateFileW", 1},
                   {"SetNamedSecurityInfoW", 1}});
    EXPECT_EQ(calls, CallsForAnEntry(add, &RunBare));
}

TEST(PlatformCallsOfAnEntry, AFileBelowADirectoryInASecuredOne) {
    const Counts directory = CallsForAnEntry(
        [](const std::filesystem::path& path) { std::filesystem::create_directory(path); },
        &RunProgram);
    const Counts both = CallsForAnEntry(
        [](const std::filesystem::path& path) { test::PutFile(path / L"file", ""); }, &RunProgram);
    const Counts calls = Difference(both, directory);
    Compare(
        "file below a directory in a secured one", calls,
        Counts{
            {"FindNextFileW", 2}, {"ExpandEnvironmentStringsW", 1}, {"SetNamedSecurityInfoW", 1}});
}

TEST(PlatformCallsOfAnEntry, AShippedFileThatReplacesTheOldOne) {
    const test::TemporaryDirectory files;
    const std::wstring from = files / L"from";
    const std::wstring to = files / L"to";
    const std::vector<FileOperation> row = {{true, to, {}, from}};
    const auto prepare = [&] {
        test::PutFile(from, "new");
        test::PutFile(to, "old");
    };
    const auto levels = static_cast<std::size_t>(std::ranges::count(files.Path(), L'\\') + 1);

    Counts calls = CountsOf(prepare, [&] { RunFileOperations(row); });
    // Each level of the directory is queried.
    calls["ExpandEnvironmentStringsW"] -= levels;
    calls["GetFileAttributesW"] -= levels;
    // The path is expanded for the log, and for its use.
    Compare("shipped file, beside the levels of its directory", calls,
            Counts{{"ExpandEnvironmentStringsW", 10},
                   {"GetFileAttributesW", 1},
                   {"DeleteFileW", 1},
                   {"_wsplitpath_s", 1},
                   {"CopyFileW", 1}});
}

TEST(PlatformCallsOfAnEntry, ASettingThatIsDeletedOrWritten) {
    const RegistrySetting setting = {.root = HKEY_LOCAL_MACHINE,
                                     .keyPath = L"SOFTWARE\\Key",
                                     .valueName = L"value",
                                     .type = REG_DWORD};
    const Counts written = CountsOf([&] { WriteSetting(setting); });
    Compare("setting that is written", written,
            Counts{{"RegCreateKeyExW", 1}, {"RegSetValueExW", 1}, {"RegCloseKey", 1}});
    const Counts deleted =
        CountsOf([&] { WriteSetting(setting); }, [&] { DeleteSetting(setting); });
    Compare("setting that is deleted", deleted,
            Counts{{"RegCreateKeyExW", 1}, {"RegDeleteValueW", 1}, {"RegCloseKey", 1}});
}

TEST(PlatformCallsOfAnEntry, AServiceThatIsStoppedStartedOrDisabled) {
    const ProcessEntry service = {EntryKind::Service, L"Corvo", L""};
    // The request and the wait each have a connection; the service is pending at the first poll.
    const Counts stopped = CountsOf([&] { StopEntry(service); });
    Compare("service that is stopped", stopped,
            Counts{{"OpenSCManagerW", 2},
                   {"OpenServiceW", 2},
                   {"ControlService", 1},
                   {"QueryServiceStatus", 2},
                   {"CloseServiceHandle", 4}});
    const Counts started = CountsOf([&] { StartEntry(service); });
    Compare("service that is started", started,
            Counts{{"OpenSCManagerW", 2},
                   {"OpenServiceW", 2},
                   {"StartServiceW", 1},
                   {"QueryServiceStatus", 2},
                   {"CloseServiceHandle", 4}});
    const Counts disabled = CountsOf([&] { DisableServices(std::span(&service, 1)); });
    Compare("service that is disabled", disabled,
            Counts{{"OpenSCManagerW", 1},
                   {"OpenServiceW", 1},
                   {"ChangeServiceConfigW", 1},
                   {"CloseServiceHandle", 2}});
}

}  // namespace
