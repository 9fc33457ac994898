// Whether the machine is in order after whole runs, as a second opinion. With the requested access
// control lists where directories are checked: Wine makes lists up.

#include "fs/secured_directories.h"
#include "machine/machine.h"
#include "proc/scm.h"
#include "shared/owner.h"
#include "support/call_log.h"
#include "support/end_process.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/on_wine.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <tlhelp32.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr std::chrono::seconds QuitLimit{10};
constexpr DWORD StopLimitMs = 30'000;

// The line of a row that differs; the beginning of it if that is all.
std::string Differs(const std::string& kind, const std::wstring& name,
                    const std::string& expected = {}, const std::string& found = {}) {
    const std::string start = "DIFFERS  " + kind + std::string(11 - kind.size(), ' ') +
                              test::Narrow(name) + ": expected ";
    return expected.empty() ? start : start + expected + ", found " + found;
}

constexpr wchar_t Parameters[] =
    L"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network Service\\"
    L"Parameters\\";

// The running process with this file name; there is one.
DWORD ProcessNamed(const std::wstring& name) {
    const Utils::FileHandle processes(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process = {};
    process.dwSize = sizeof(process);
    for (BOOL found = ::Process32FirstW(processes.Get(), &process);
         found && process.szExeFile != name; found = ::Process32NextW(processes.Get(), &process)) {
    }
    return process.th32ProcessID;
}

void Stop(const std::wstring& service) {
    ASSERT_TRUE(Utils::SCM().RequestStop(service));
    ASSERT_TRUE(Utils::SCM().WaitForState(service, SERVICE_STOPPED, 0, StopLimitMs));
}

class VerifiedRun : public testing::Test {
protected:
    VerifiedRun() {
        machine_.InstallProduct();
        test::MakePlainDirectory(test::Machine::DataDirectory());
        machine_.InstallProgram(L"finaset-verify.exe", L"finaset-verify.exe");
        machine_.InstallProgram(L"stand_in_verifier.exe", L"verifier.exe");
    }

    ~VerifiedRun() override {
        for (const wchar_t* const name : {L"lists.txt", L"printed.txt"}) {
            test::RemoveAll(std::filesystem::path(L"C:\\") / name);
        }
    }

    // The lines of what is not in order after a run with the option, given the lists.
    std::vector<std::string> Findings(const std::wstring& option = {}) {
        std::string text;
        for (const auto& [path, list] : lists_) {
            text += test::Narrow(path) + '\t' + list + '\n';
        }
        test::PutFile(L"C:\\lists.txt", text);
        Call(L"C:\\lists.txt " + option, L"verifier.exe");
        std::vector<std::string> findings;
        std::istringstream lines(printed_);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("DIFFERS") || line.starts_with("UNKNOWN")) {
                line.pop_back();  // the carriage return
                findings.push_back(line);
            }
        }
        return findings;
    }

    // Calls the program itself. Returns its exit status; its output is in `printed_`.
    int Call(const std::wstring& arguments, const std::wstring& program = L"finaset-verify.exe") {
        constexpr wchar_t Printed[] = L"C:\\printed.txt";
        DWORD status = 0;
        {
            const Utils::FileHandle output = Inheritable(Printed, CREATE_ALWAYS);
            const Utils::FileHandle nothing = Inheritable(L"NUL", OPEN_EXISTING);
            status = test::RunToEnd(
                L'"' + (machine_.ProgramDirectory() / program).wstring() + L"\" " + arguments,
                output.Get(), nothing.Get());
        }
        printed_ = test::FileText(Printed).value();
        return static_cast<int>(status);
    }

    static Utils::FileHandle Inheritable(const wchar_t* path, DWORD creation) {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        return Utils::FileHandle(::CreateFileW(path, GENERIC_WRITE,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                               creation, 0, nullptr));
    }

    [[nodiscard]] static std::filesystem::path Data(const std::wstring& name) {
        return test::Machine::DataDirectory() / name;
    }

    test::Machine machine_;
    // Those that are not only inherited, by path.
    std::map<std::wstring, std::string> lists_ = test::RequestedLists();
    std::string printed_;
};

TEST_F(VerifiedRun, LeavesAMachineInOrder) {
    EXPECT_THAT(Findings(), Not(IsEmpty()));  // nothing was done yet
    const Utils::KernelHandle application = machine_.StartProduct();
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    ASSERT_TRUE(test::Ended(application, QuitLimit));
    EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(VerifiedRun, LeavesAMachineInOrderThatHadTheProductBefore) {
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    test::PutFile(test::Machine::ConfigurationDirectory() / L"user.xml", "the user's own");
    test::PutFile(Data(L"ImageCache\\icons\\game.png"), "an image");
    machine_.WriteStaleSettings();
    test::Machine::ScheduleTask(L"Tarsel Lumetra Startup Task");
    EXPECT_EQ(Findings().size(), 3U);
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(VerifiedRun, ThatDisablesLeavesServicesDisabled) {
    EXPECT_EQ(Call(L"/DISABLE"), 1);
    ASSERT_EQ(machine_.Run(L"/DISABLE").exitCode, 0U);
    EXPECT_THAT(Findings(L"/DISABLE"), IsEmpty());
    EXPECT_EQ(Call(L"/DISABLE"), 0);
    EXPECT_THAT(printed_, HasSubstr(" ok, 0 DIFFERS, 0 UNKNOWN"));
    machine_.InstallService(L"Corvo");
    EXPECT_THAT(Findings(L"/DISABLE"),
                ElementsAre(Differs("disable", L"Corvo", "disabled", "automatic")));
    EXPECT_EQ(Call(L"/DISABLE"), 1);
    EXPECT_THAT(printed_,
                HasSubstr("DIFFERS  disable    Corvo: expected disabled, found automatic"));
}

TEST_F(VerifiedRun, ThatStopsAndOneThatStartsAreSeenByTheProgramItself) {
    const Utils::KernelHandle application = machine_.StartProduct();
    EXPECT_EQ(Call(L"/STOP"), 1);
    ASSERT_EQ(machine_.Run(L"/STOP").exitCode, 0U);
    ASSERT_TRUE(test::Ended(application, QuitLimit));
    EXPECT_EQ(Call(L"/STOP"), 0);
    EXPECT_EQ(Call(L"/START"), 1);
    ASSERT_EQ(machine_.Run(L"/START").exitCode, 0U);
    EXPECT_EQ(Call(L"/START"), 0);
    Stop(L"Ardex");
    EXPECT_EQ(Call(L"/START"), 1);
    EXPECT_THAT(printed_,
                AllOf(HasSubstr("DIFFERS  start      Ardex: expected running, found stopped"),
                      HasSubstr(" ok, 1 DIFFERS, 0 UNKNOWN")));
}

TEST_F(VerifiedRun, OnAnInsecureMachineLeavesOnlyWhatComesBeforeTheGate) {
    test::PutFile(L"C:\\victim", "victim");
    const std::filesystem::path link = Data(L"Nimbus\\link");
    std::filesystem::create_directories(link.parent_path());
    ASSERT_TRUE(::CreateHardLinkW(link.c_str(), L"C:\\victim", nullptr));
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    const std::vector<std::string> findings = Findings();
    EXPECT_THAT(findings,
                Contains(AllOf(StartsWith(Differs("directory", Data(L"Nimbus"))),
                               EndsWith("found a link among its entries: " + link.string()))));
    EXPECT_THAT(findings, Contains(AllOf(HasSubstr("Tarsel_HWConfig: expected "),
                                         HasSubstr(", found absent"))));
    EXPECT_THAT(findings, Contains(StartsWith(Differs("task", L"VxIdle Task"))));
    EXPECT_THAT(findings, Each(Not(HasSubstr("DIFFERS  st"))));  // start, stop
    EXPECT_THAT(findings, Each(Not(HasSubstr("DIFFERS  file"))));
    EXPECT_THAT(findings, Each(Not(HasSubstr("FirstRun"))));
    std::filesystem::remove(L"C:\\victim");
}

// A single error on a machine in order, and its repair.
struct Spoiled {
    std::string row;  // the beginning of the only one that must differ
    std::function<void()> spoil;
    std::function<void()> mend;
};

TEST_F(VerifiedRun, ShowsExactlyTheErrorOfAMachine) {
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    ASSERT_THAT(Findings(), IsEmpty());

    const std::filesystem::path configuration = test::Machine::ConfigurationDirectory();
    const std::filesystem::path tasks = L"C:\\windows\\system32\\tasks";
    const std::string idleTask = test::FileText(tasks / L"VxIdle Task").value();
    const std::wstring nimbus = Data(L"Nimbus");
    const std::string itsCommand =
        "C:\\Program Files\\Tarsel\\Lumetra\\VxIdleTask.exe for S-1-5-32-544";
    std::optional<test::DirectoryLink> link;
    test::PutFile(Data(L"Nimbus\\ActivityLog\\deep\\file"), "");
    std::filesystem::create_directory(L"C:\\elsewhere");

    const std::vector<Spoiled> all = {
        {Differs("stop", L"Corvo", "not running", "running"),
         [&] { machine_.Service(L"Corvo").Start(); }, [&] { Stop(L"Corvo"); }},
        {Differs("start", L"Ardex", "running", "stopped"), [&] { Stop(L"Ardex"); },
         [&] { machine_.Service(L"Ardex").Start(); }},
        {Differs("start", L"Tarsel Metrics Service", "running", "not installed"),
         [&] { machine_.RemoveService(L"Tarsel Metrics Service"); },
         [&] { machine_.InstallService(L"Tarsel Metrics Service").Start(); }},
        {Differs("start", L"BriskoLU.exe", "running", "not running"),
         [&] { test::EndProcess(ProcessNamed(L"BriskoLU.exe")); },
         [&] { machine_.StartBackgroundProgram(L"BriskoLU.exe"); }},
        {Differs("setting", Parameters + std::wstring(L"ConfigFileDirectory"), "absent",
                 "\"C:\\Stale\""),
         [&] { machine_.WriteTextSetting(L"ConfigFileDirectory", L"C:\\Stale"); },
         [&] { machine_.RemoveSetting(L"ConfigFileDirectory"); }},
        {Differs("setting", L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Halvane\\SAP\\", "absent", "a key"),
         [&] { test::MakeKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP"); },
         [&] { ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP"); }},
        {Differs("setting", Parameters + std::wstring(L"FirstRun"), "0", "1"),
         [&] { machine_.WriteSetting(L"FirstRun", 1); },
         [&] { machine_.WriteSetting(L"FirstRun", 0); }},
        {Differs("file", configuration / L"oem.xml"),
         [&] { test::PutFile(configuration / L"oem.xml", "shipped oem.xmI"); },
         [&] { test::PutFile(configuration / L"oem.xml", "shipped oem.xml"); }},
        {Differs("file", configuration / L"user.xml", "there", "absent"),
         [&] { std::filesystem::remove(configuration / L"user.xml"); },
         [&] { test::PutFile(configuration / L"user.xml", "the user's own"); }},
        {Differs("directory", configuration),
         [&] {
             ::CreateHardLinkW((configuration / L"link").c_str(),
                               (configuration / L"user.xml").c_str(), nullptr);
         },
         [&] { std::filesystem::remove(configuration / L"link"); }},
        {Differs("directory", Data(L"ImageCache")),
         [&] { link.emplace(Data(L"ImageCache\\link"), L"C:\\elsewhere"); }, [&] { link.reset(); }},
        {Differs("directory", nimbus),
         [&] { lists_[nimbus] = "D:AI(A;OICIID;FA;;;BA)(A;OICIID;FA;;;SY)"; },
         [&] { lists_[nimbus] = "D:P(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)"; }},
        {Differs("directory", Data(L"Nimbus\\ActivityLog")),
         [&] { lists_[Data(L"Nimbus\\ActivityLog\\deep\\file")] = "D:AI(A;;FA;;;WD)"; },
         [&] { lists_.erase(Data(L"Nimbus\\ActivityLog\\deep\\file")); }},
        {Differs("directory", Data(L"Nimbus\\ActivityLog")),
         [&] { std::filesystem::rename(Data(L"Nimbus\\ActivityLog"), L"C:\\moved"); },
         [&] { std::filesystem::rename(L"C:\\moved", Data(L"Nimbus\\ActivityLog")); }},
        {Differs("task", L"VxIdle Task", itsCommand, "absent"),
         [&] { std::filesystem::remove(tasks / L"VxIdle Task"); },
         [&] { test::PutFile(tasks / L"VxIdle Task", idleTask); }},
        {Differs("task", L"VxIdle Task", itsCommand,
                 "C:\\Program Files\\Tarsel\\Lumetra\\AnIdleTask.exe for S-1-5-32-544"),
         [&] {
             std::string xml = idleTask;
             xml.replace(xml.find("\\VxIdleTask.exe"), 3, "\\An");
             test::PutFile(tasks / L"VxIdle Task", xml);
         },
         [&] { test::PutFile(tasks / L"VxIdle Task", idleTask); }},
        {Differs("task", L"Tarsel Lumetra Startup Task", "absent", "registered"),
         [&] { test::Machine::ScheduleTask(L"Tarsel Lumetra Startup Task"); },
         [&] { std::filesystem::remove(tasks / L"Tarsel Lumetra Startup Task"); }},
    };
    for (const Spoiled& each : all) {
        if (!test::OnWine() && each.row.find("  task  ") != std::string::npos) {
            continue;  // Windows' Task Scheduler does not take a file's word for it
        }
        each.spoil();
        EXPECT_THAT(Findings(), ElementsAre(StartsWith(each.row)));
        each.mend();
        ASSERT_THAT(Findings(), IsEmpty()) << "after mending: " << each.row;
    }

    // With this adapter, the bitmask requires a feature.
    if (_wgetenv(L"FINASET_ADAPTERS") != nullptr) {
        machine_.WriteSetting(L"MultiInterface_Enabled", 0);
        EXPECT_THAT(Findings(), ElementsAre(Differs(
                                    "setting", Parameters + std::wstring(L"MultiInterface_Enabled"),
                                    "1", "0")));
        machine_.WriteSetting(L"MultiInterface_Enabled", 1);
        test::PutValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tarsel\\Nimbus", L"Tarsel_HWConfig",
                       test::DwordValue(6));
        EXPECT_THAT(Findings(), ElementsAre(HasSubstr("Tarsel_HWConfig: expected 2, found 6")));
    }
    test::EndProcess(ProcessNamed(L"BriskoLU.exe"));
    test::RemoveAll(L"C:\\elsewhere");
}

TEST_F(VerifiedRun, IsConfirmedByTheProgramItselfExceptForTheMadeUpAccessControlLists) {
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    if (!test::OnWine()) {
        EXPECT_EQ(Call(L""), 0);
        return;
    }
    const std::string differ = std::to_string(SecuredDirectoryTable.size());
    EXPECT_EQ(Call(L""), 1);
    EXPECT_THAT(printed_, HasSubstr(" ok, " + differ + " DIFFERS, 0 UNKNOWN"));
    EXPECT_THAT(printed_, HasSubstr("DIFFERS  directory  " + Data(L"ImageCache").string() +
                                    ": expected without links, D:P(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)"
                                    "(A;OICI;GXGR;;;BU), inherited below it, found a list that is "
                                    "not protected"));
    EXPECT_EQ(Call(L"--json"), 1);
    EXPECT_THAT(printed_, AllOf(StartsWith("{\"computer\":\""), EndsWith("]}\r\n"),
                                HasSubstr("\"actions\":15,"),
                                HasSubstr("\"differs\":" + differ + ",\"unknown\":0,")));
    EXPECT_EQ(Call(L"/FOO"), 2);
    EXPECT_EQ(printed_, "");
}

// Everything that persists: each file with its size and times, and the registry.
std::map<std::wstring, std::string> WholeMachine() {
    std::map<std::wstring, std::string> state;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(
             L"C:\\", std::filesystem::directory_options::skip_permission_denied)) {
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        ::GetFileAttributesExW(entry.path().c_str(), GetFileExInfoStandard, &data);
        data.ftLastAccessTime = {};
        state[entry.path()] = {reinterpret_cast<const char*>(&data), sizeof(data)};
    }
    for (const std::wstring hive : {L"HKLM", L"HKCU", L"HKU"}) {
        test::RunToEnd(L"reg.exe export " + hive + L" C:\\export.reg /y");
        state[hive] = test::FileText(L"C:\\export.reg").value();
    }
    for (const wchar_t* const own : {L"C:\\export.reg", L"C:\\printed.txt"}) {
        state.erase(own);
    }
    return state;
}

TEST_F(VerifiedRun, IsNotTouchedByTheProgram) {
    if (!test::OnWine()) {
        GTEST_SKIP() << "Windows itself changes files and settings all the time";
    }
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    Call(L"");  // what a program's first start leaves behind is the system's
    const std::map<std::wstring, std::string> before = WholeMachine();
    ASSERT_GT(before.size(), 500U);
    ASSERT_GT(before.at(L"HKLM").size(), 100'000U);
    EXPECT_EQ(Call(L""), 1);
    EXPECT_EQ(Call(L"--json"), 1);
    EXPECT_EQ(Call(L"/DISABLE"), 1);
    const std::map<std::wstring, std::string> after = WholeMachine();
    std::vector<std::wstring> changed;
    for (const auto& [name, state] : before) {
        if (!after.contains(name) || after.at(name) != state) {
            changed.push_back(name);
        }
    }
    EXPECT_THAT(changed, IsEmpty());
    EXPECT_EQ(after.size(), before.size());
}

TEST_F(VerifiedRun, WithDamagedSettingsIsDetected) {
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    machine_.WriteSetting(L"FinasetAction", REG_BINARY, std::string(100'000, 'x'));
    machine_.WriteSetting(L"FirstRun", REG_SZ, std::string(100'001, '\xD8'));
    machine_.WriteSetting(L"ImageCacheDirectory", REG_SZ, std::string("\x3D\xD8|\0", 4));
    machine_.WriteSetting(L"ActivityLogDirectory", REG_MULTI_SZ, "");
    EXPECT_EQ(Call(L"--json"), 1);
    EXPECT_THAT(printed_, HasSubstr("\"actions\":15,"));
    EXPECT_THAT(printed_, HasSubstr("100001 bytes of type 1"));
    EXPECT_EQ(Call(L""), 1);
}

}  // namespace
