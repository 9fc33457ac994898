// What run-on-windows.cmd does not do itself, in the directory with the test programs:
//
//   windows_kit check              whether the tests may run here; if not, says why and exits
//                                  with code 2
//   windows_kit run PROGRAM        runs one of them to its end, with its output and results in
//                                  the directory "report"; "serve" does the same for a service
//   windows_kit summary PROGRAM... writes and shows report\summary.txt; exits with code 1 if a
//                                  test failed, a program did not finish, or something is left

#include "machine/machine.h"
#include "proc/process_lists.h"
#include "shared/owner.h"
#include "support/end_process.h"
#include "support/file_contents.h"
#include "support/installed_service.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Utils::KernelHandle;
using Utils::ServiceHandle;

constexpr int ExitGood = 0;
constexpr int ExitBad = 1;
constexpr int ExitRefused = 2;

// The longest program takes a quarter of an hour on a slow machine.
constexpr DWORD ProgramLimitMs = 3'600'000;
constexpr std::size_t MostFailures = 15;  // for a summary of one page
constexpr std::size_t MostNames = 3;
constexpr std::size_t MostText = 300;

const std::filesystem::path Report = L"report";

std::string Narrow(const std::wstring& text) {
    std::string narrow(text.size() * 3, '\0');
    narrow.resize(static_cast<std::size_t>(
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                              static_cast<int>(narrow.size()), nullptr, nullptr)));
    return narrow;
}

std::string Found(bool found, const std::string& what) {
    return found ? "  " + what + "\n" : "";
}

// What exists under the product's names, one line each; nothing on a machine for these tests.
std::string ProductHere() {
    std::set<std::wstring> services;
    for (const auto* list : {&StopList, &StartList, &DisableList}) {
        for (const ProcessEntry& entry : *list) {
            if (entry.kind == EntryKind::Service) {
                services.insert(entry.name);
            }
        }
    }
    std::string lines;
    const ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    for (const std::wstring& name : services) {
        const ServiceHandle service(
            ::OpenServiceW(manager.Get(), name.c_str(), SERVICE_QUERY_STATUS));
        lines += Found(static_cast<bool>(service), "the service " + Narrow(name));
    }
    for (const wchar_t* key : {L"SOFTWARE\\Tarsel", L"SOFTWARE\\Halvane"}) {
        lines += Found(test::KeyExists(HKEY_LOCAL_MACHINE, key),
                       "the key HKEY_LOCAL_MACHINE\\" + Narrow(key));
    }
    for (const std::filesystem::path& directory :
         {std::filesystem::path(L"C:\\Program Files\\Tarsel"), test::Machine::DataDirectory(),
          test::Machine::DriverDirectory().parent_path()}) {
        lines += Found(exists(directory), "the directory " + Narrow(directory));
    }
    return lines;
}

struct Version {
    DWORD major = 0;
    DWORD minor = 0;
    DWORD build = 0;
};

// Not GetVersionEx, which reports an older version to a program without a manifest.
Version WindowsVersion() {
    using GetVersion = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    const auto get = reinterpret_cast<GetVersion>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    RTL_OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    get(&info);
    return {info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber};
}

std::string Text(const Version& version) {
    return std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
           std::to_string(version.build);
}

bool IsElevated() {
    HANDLE opened = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened);
    const KernelHandle token(opened);
    TOKEN_ELEVATION elevation = {};
    DWORD size = sizeof(elevation);
    return ::GetTokenInformation(token.Get(), TokenElevation, &elevation, size, &size) &&
           elevation.TokenIsElevated != 0;
}

// Whether everything can use the tests' own path: a service, which has no network drives, a log,
// and GoogleTest, which starts its programs by an ANSI path.
bool IsGoodPlace(const std::filesystem::path& place) {
    const std::wstring path = place;
    return ::GetDriveTypeW(place.root_path().c_str()) != DRIVE_REMOTE &&
           std::ranges::all_of(path, [](wchar_t character) { return character < 0x80; });
}

int Check() {
    constexpr DWORD Windows10 = 10;
    const Version version = WindowsVersion();
    if (!IsElevated()) {
        std::puts("The tests need an administrator's rights: start this as an administrator.");
        return ExitRefused;
    }
    if (!IsGoodPlace(std::filesystem::current_path())) {
        std::puts(
            "The tests need a path of ASCII characters on a disk of this machine: move them, for "
            "instance to C:\\kit.");
        return ExitRefused;
    }
    if (version.major < Windows10) {
        std::printf(
            "This is Windows %s. The tests are for Windows 10, Windows Server 2016 and "
            "later.\n",
            Text(version).c_str());
        return ExitRefused;
    }
    if (const std::string here = ProductHere(); !here.empty()) {
        std::printf("The tests would remove what this machine has of the product already:\n%s",
                    here.c_str());
        return ExitRefused;
    }
    return ExitGood;
}

// How a test program ended.
enum class End : DWORD { Passed, Failed, NotStarted, TooLate };

End RunHere(const std::wstring& program) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    const KernelHandle output(::CreateFileW((Report / (program + L".txt")).c_str(), GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                            CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.Get();
    startup.hStdError = output.Get();
    std::wstring command =
        program + L".exe --gtest_output=xml:" + (Report / (program + L".xml")).wstring();
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                          &startup, &info)) {
        return End::NotStarted;
    }
    const KernelHandle thread(info.hThread);
    const KernelHandle process(info.hProcess);
    if (::WaitForSingleObject(process.Get(), ProgramLimitMs) != WAIT_OBJECT_0) {
        test::EndProcess(info.dwProcessId);
        return End::TooLate;
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(process.Get(), &exitCode);
    return exitCode == 0 ? End::Passed : End::Failed;
}

// Whole runs are tested as the user under which Windows Installer runs the program, which a service
// has too. An administrator could not have the application asked to quit.
const std::set<std::wstring> SystemsPrograms = {L"machine_tests", L"verify_machine_tests"};
constexpr wchar_t ServiceName[] = L"Finaset windows kit";

std::wstring Environment(const wchar_t* name) {
    const wchar_t* value = _wgetenv(name);
    return value == nullptr ? L"" : value;
}

// The same as a service, which passes on what it does not inherit: the directory, and the tests'
// environment variables.
End RunAsTheSystem(const std::wstring& program) {
    const ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    const std::wstring command = L"\"" + test::BesideThisProgram(L"windows_kit.exe") + L"\" serve";
    const ServiceHandle service(
        ::CreateServiceW(manager.Get(), ServiceName, ServiceName, SERVICE_ALL_ACCESS,
                         SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                         command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    const std::wstring directory = std::filesystem::current_path();
    const std::wstring report = Environment(L"FINASET_REPORT");
    const std::wstring filter = Environment(L"GTEST_FILTER");
    // An empty one at the end would be lost.
    std::vector<const wchar_t*> arguments = {program.c_str(), directory.c_str(), report.c_str()};
    if (!filter.empty()) {
        arguments.push_back(filter.c_str());
    }
    if (!service ||
        !::StartServiceW(service.Get(), static_cast<DWORD>(arguments.size()), arguments.data())) {
        ::DeleteService(service.Get());
        return End::NotStarted;
    }
    SERVICE_STATUS_PROCESS status = {};
    const auto query = [&] {
        DWORD needed = 0;
        ::QueryServiceStatusEx(service.Get(), SC_STATUS_PROCESS_INFO,
                               reinterpret_cast<BYTE*>(&status), sizeof(status), &needed);
    };
    query();
    const KernelHandle process(::OpenProcess(SYNCHRONIZE, FALSE, status.dwProcessId));
    ::WaitForSingleObject(process.Get(), 2 * ProgramLimitMs);  // it keeps to the limit itself
    query();
    ::DeleteService(service.Get());
    return status.dwCurrentState == SERVICE_STOPPED &&
                   status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR
               ? static_cast<End>(status.dwServiceSpecificExitCode)
               : End::NotStarted;
}

SERVICE_STATUS_HANDLE statusHandle = nullptr;

void ReportStatus(DWORD state, End end) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
    status.dwServiceSpecificExitCode = static_cast<DWORD>(end);
    ::SetServiceStatus(statusHandle, &status);
}

void WINAPI Serve(DWORD count, wchar_t** arguments) {
    statusHandle = ::RegisterServiceCtrlHandlerW(ServiceName, [](DWORD) WINAPI {});
    ReportStatus(SERVICE_RUNNING, End::NotStarted);
    ::SetCurrentDirectoryW(arguments[2]);
    ::SetEnvironmentVariableW(L"FINASET_REPORT", arguments[3]);
    if (count > 4) {
        ::SetEnvironmentVariableW(L"GTEST_FILTER", arguments[4]);
    }
    ReportStatus(SERVICE_STOPPED, RunHere(arguments[1]));
}

int ServeTheSystem() {
    std::wstring name = ServiceName;
    const SERVICE_TABLE_ENTRYW services[] = {{name.data(), &Serve}, {nullptr, nullptr}};
    return ::StartServiceCtrlDispatcherW(services) ? ExitGood : ExitBad;
}

int Run(const std::wstring& program) {
    const bool asTheSystem = SystemsPrograms.contains(program);
    std::printf("%s%s ... ", Narrow(program).c_str(), asTheSystem ? " (as the system)" : "");
    std::fflush(stdout);
    const End end = asTheSystem ? RunAsTheSystem(program) : RunHere(program);
    switch (end) {
        case End::Passed:
            std::puts("passed");
            break;
        case End::Failed:
            std::puts("failed");
            break;
        case End::NotStarted:
            std::puts("cannot be started");
            break;
        case End::TooLate:
            std::puts("does not end");
            break;
    }
    return end == End::Passed ? ExitGood : ExitBad;
}

// An attribute of the element that begins at `element`, or "".
std::string Attribute(std::string_view xml, std::size_t element, const std::string& name) {
    const std::string_view tag = xml.substr(element, xml.find('>', element) - element);
    const std::size_t at = tag.find(" " + name + "=\"");
    if (at == tag.npos) {
        return "";
    }
    const std::size_t begin = at + name.size() + 3;
    std::string value(tag.substr(begin, tag.find('"', begin) - begin));
    for (const auto& [entity, character] :
         std::initializer_list<std::pair<std::string_view, std::string_view>>{{"&#x0A;", "\n"},
                                                                              {"&#x0D;", ""},
                                                                              {"&#x09;", " "},
                                                                              {"&lt;", "<"},
                                                                              {"&gt;", ">"},
                                                                              {"&quot;", "\""},
                                                                              {"&apos;", "'"},
                                                                              {"&amp;", "&"}}) {
        for (std::size_t found = value.find(entity); found != value.npos;
             found = value.find(entity, found + character.size())) {
            value.replace(found, entity.size(), character);
        }
    }
    return value;
}

// A message without its first line, which is a source location; on one line.
std::string WithoutPlace(const std::string& message) {
    std::istringstream lines(message);
    std::string text;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        const std::size_t begin = line.find_first_not_of(' ');
        if (begin != line.npos) {
            text += (text.empty() ? "" : " | ") + line.substr(begin);
        }
    }
    return text.size() > MostText ? text.substr(0, MostText) + " ..." : text;
}

// The test in which a program that did not come to its end was.
std::string LastTest(const std::wstring& program) {
    constexpr std::string_view Begin = "[ RUN      ] ";
    const std::string output = test::FileText(Report / (program + L".txt")).value_or("");
    const std::size_t begin = output.rfind(Begin);
    if (begin == output.npos) {
        return "";
    }
    const std::size_t name = begin + Begin.size();
    return " in " + output.substr(name, output.find_first_of("\r\n", name) - name);
}

struct Summary {
    std::string programs;                                     // a line for each
    std::vector<std::string> failures;                        // a line for each
    std::map<std::string, std::vector<std::string>> skipped;  // names by reason
    bool passed = true;
};

void Add(Summary& summary, const std::wstring& program) {
    const std::string name = Narrow(program);
    const auto text = test::FileText(Report / (program + L".xml"));
    if (!text || text->find("</testsuites>") == text->npos) {
        summary.programs += "  " + name + ": did not come to its end" + LastTest(program) +
                            ", see report\\" + name + ".txt\n";
        summary.passed = false;
        return;
    }
    const std::string_view xml = *text;
    int failures = 0;
    int skips = 0;
    for (std::size_t test = xml.find("<testcase "); test != xml.npos;
         test = xml.find("<testcase ", test + 1)) {
        const std::size_t end = xml.find("<testcase ", test + 1);
        const std::string title =
            Attribute(xml, test, "classname") + "." + Attribute(xml, test, "name");
        const std::size_t failure = xml.substr(0, end).find("<failure ", test);
        const std::size_t skip = xml.substr(0, end).find("<skipped ", test);
        if (failure != xml.npos) {
            ++failures;
            summary.failures.push_back(title + ": " +
                                       WithoutPlace(Attribute(xml, failure, "message")));
        } else if (skip != xml.npos) {
            ++skips;
            summary.skipped[WithoutPlace(Attribute(xml, skip, "message"))].push_back(title);
        }
    }
    const std::size_t all = xml.find("<testsuites ");
    summary.programs += "  " + name + ": " + Attribute(xml, all, "tests") + " tests, " +
                        std::to_string(failures) + " failed, " + std::to_string(skips) +
                        " skipped, " + Attribute(xml, all, "time") + " s\n";
    summary.passed = summary.passed && failures == 0;
}

// The system's name for itself.
std::string ProductName() {
    constexpr wchar_t Key[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    wchar_t name[256] = {};
    DWORD size = sizeof(name);
    ::RegGetValueW(HKEY_LOCAL_MACHINE, Key, L"ProductName", RRF_RT_REG_SZ, nullptr, name, &size);
    return Narrow(name);
}

std::string Language() {
    wchar_t name[LOCALE_NAME_MAX_LENGTH] = {};
    ::GetUserDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH);
    return Narrow(name) + ", code page " + std::to_string(::GetACP());
}

int Summarize(const std::vector<std::wstring>& programs) {
    Summary summary;
    for (const std::wstring& program : programs) {
        Add(summary, program);
    }
    std::string text = "Windows " + Text(WindowsVersion()) + " (" + ProductName() + "), " +
                       Language() + "\n\nPrograms\n" + summary.programs;
    if (!summary.failures.empty()) {
        text += "\nFailed\n";
        for (std::size_t index = 0; index < summary.failures.size(); ++index) {
            if (index == MostFailures) {
                text += "  and " + std::to_string(summary.failures.size() - index) + " more\n";
                break;
            }
            text += "  " + summary.failures[index] + "\n";
        }
    }
    if (!summary.skipped.empty()) {
        text += "\nSkipped\n";
    }
    for (const auto& [reason, names] : summary.skipped) {
        text += "  " + (reason.empty() ? "for no reason" : reason) + ": ";
        for (std::size_t index = 0; index < names.size() && index < MostNames; ++index) {
            text += (index == 0 ? "" : ", ") + names[index];
        }
        text += names.size() > MostNames
                    ? " and " + std::to_string(names.size() - MostNames) + " more\n"
                    : "\n";
    }
    if (const std::string left = ProductHere(); !left.empty()) {
        text += "\nLeft on this machine\n" + left;
        summary.passed = false;
    }
    text += summary.passed ? "\nEverything that was run has passed.\n"
                           : "\nNot everything has passed.\n";
    test::PutFile(Report / L"summary.txt", text);
    std::printf("\n%s", text.c_str());
    return summary.passed ? ExitGood : ExitBad;
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    const std::vector<std::wstring> words(arguments + 1, arguments + argumentCount);
    try {
        if (words.size() == 1 && words[0] == L"check") {
            return Check();
        }
        if (words.size() == 1 && words[0] == L"serve") {
            return ServeTheSystem();
        }
        if (words.size() == 2 && words[0] == L"run") {
            return Run(words[1]);
        }
        if (words.size() > 1 && words[0] == L"summary") {
            return Summarize({words.begin() + 1, words.end()});
        }
        std::puts("usage: windows_kit check | run PROGRAM | summary PROGRAM...");
    } catch (const std::exception& error) {
        std::printf("windows_kit: %s\n", error.what());
    }
    return ExitRefused;
}
