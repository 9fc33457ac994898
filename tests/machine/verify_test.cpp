// Whether the machine is in order after whole runs, in a second opinion. Where directories are
// looked at, from within this program: there the access lists are those that were asked for, where
// Wine's are made up.

#include "verify/verify.h"

#include "driver/actions.h"
#include "machine/machine.h"
#include "machine/verified_machine.h"
#include "proc/scm.h"
#include "shared/owner.h"
#include "support/access_lists.h"
#include "support/end_process.h"
#include "support/file_contents.h"
#include "support/initialised_com.h"
#include "support/on_wine.h"
#include "support/registry_contents.h"
#include "tools/verify_rows.h"

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
using verify::Row;
using verify::Rows;
using verify::Verdict;

constexpr std::uint32_t DefaultActions = 15;
constexpr std::chrono::seconds QuitLimit{10};
constexpr DWORD StopLimitMs = 30'000;

constexpr wchar_t Parameters[] =
    L"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network Service\\"
    L"Parameters\\";

// The running process of this file name; there is one.
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
        machine_.InstallProgram(L"finaset-verify.exe", L"finaset-verify.exe");
        const std::wstring data = test::Machine::DataDirectory();
        const std::wstring closed = L"D:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)";
        lists_.lists[data + L"\\Nimbus"] = closed;
        lists_.lists[data + L"\\Nimbus\\ConfigurationFiles"] = closed;
        lists_.lists[data + L"\\Nimbus\\ActivityLog"] = closed;
        lists_.lists[data + L"\\ImageCache"] = closed + L"(A;OICI;0x1200a9;;;BU)";
    }

    // The rows of a run with these actions that are not in order.
    static std::vector<std::wstring> Findings(std::uint32_t actions = DefaultActions) {
        Rows rows = verify::Verify(actions).rows;
        std::erase_if(rows, [](const Row& row) { return row.finding.verdict == Verdict::Ok; });
        return test::Shown(rows);
    }

    // Calls the program itself. Returns its exit status; what it printed is in `printed_`.
    int Call(const std::wstring& arguments) {
        const std::wstring command = L"cd /d \"" + machine_.ProgramDirectory().wstring() +
                                     L"\" && finaset-verify.exe " + arguments +
                                     L" > C:\\printed.txt 2> C:\\complaint.txt";
        const int status = ::_wsystem(command.c_str());
        printed_ = test::FileText(L"C:\\printed.txt").value();
        return status;
    }

    [[nodiscard]] static std::filesystem::path Data(const std::wstring& name) {
        return test::Machine::DataDirectory() / name;
    }

    test::Machine machine_;
    test::InitialisedCom com_;
    test::AccessLists lists_;
    test::AsVerifier verifier_{machine_};
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
    EXPECT_THAT(Findings(ActionDisable), IsEmpty());
    EXPECT_EQ(Call(L"/DISABLE"), 0);
    EXPECT_THAT(printed_, HasSubstr(" ok, 0 DIFFERS, 0 UNKNOWN"));
    machine_.InstallService(L"Corvo");
    EXPECT_THAT(Findings(ActionDisable),
                ElementsAre(L"DIFFERS | disable | Corvo | disabled | automatic"));
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
    const std::vector<std::wstring> findings = Findings();
    EXPECT_THAT(
        findings,
        Contains(AllOf(StartsWith(L"DIFFERS | directory | C:\\ProgramData\\Tarsel\\Nimbus |"),
                       EndsWith(L"a link among its entries: "
                                L"C:\\ProgramData\\Tarsel\\Nimbus\\link"))));
    EXPECT_THAT(findings, Each(Not(HasSubstr(L"| start |"))));
    EXPECT_THAT(findings, Each(Not(HasSubstr(L"| file |"))));
    EXPECT_THAT(findings, Each(Not(HasSubstr(L"FirstRun"))));
    EXPECT_THAT(findings,
                Contains(L"DIFFERS | setting | HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Nimbus"
                         L"\\Tarsel_HWConfig | " +
                         std::wstring(_wgetenv(L"FINASET_ADAPTERS") != nullptr ? L"2" : L"0") +
                         L" | absent"));
    std::filesystem::remove(L"C:\\victim");
}

// One thing that is spoiled on a machine in order, and how that is mended.
struct Spoiled {
    std::wstring row;  // the beginning of the one that must differ
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
    Utils::KernelHandle application;
    std::optional<test::DirectoryLink> link;
    test::PutFile(Data(L"Nimbus\\ActivityLog\\deep\\file"), "");
    std::filesystem::create_directory(L"C:\\elsewhere");

    const std::vector<Spoiled> all = {
        {L"stop | Corvo | not running | running", [&] { machine_.Service(L"Corvo").Start(); },
         [&] { Stop(L"Corvo"); }},
        {L"start | Ardex | running | stopped", [&] { Stop(L"Ardex"); },
         [&] { machine_.Service(L"Ardex").Start(); }},
        {L"start | Tarsel Metrics Service | running | not installed",
         [&] { machine_.RemoveService(L"Tarsel Metrics Service"); },
         [&] { machine_.InstallService(L"Tarsel Metrics Service").Start(); }},
        {L"start | BriskoLU.exe | running | not running",
         [&] { test::EndProcess(ProcessNamed(L"BriskoLU.exe")); },
         [&] { machine_.StartBackgroundProgram(L"BriskoLU.exe"); }},
        {L"setting | " + std::wstring(Parameters) + L"ConfigFileDirectory | absent | \"C:\\Stale\"",
         [&] { machine_.WriteTextSetting(L"ConfigFileDirectory", L"C:\\Stale"); },
         [&] { machine_.RemoveSetting(L"ConfigFileDirectory"); }},
        {L"setting | HKEY_LOCAL_MACHINE\\SOFTWARE\\Halvane\\SAP\\ | absent | a key",
         [&] { test::MakeKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP"); },
         [&] { ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP"); }},
        {L"setting | " + std::wstring(Parameters) + L"FirstRun | 0 | 1",
         [&] { machine_.WriteSetting(L"FirstRun", 1); },
         [&] { machine_.WriteSetting(L"FirstRun", 0); }},
        {L"file | " + (configuration / L"oem.xml").wstring(),
         [&] { test::PutFile(configuration / L"oem.xml", "shipped oem.xmI"); },
         [&] { test::PutFile(configuration / L"oem.xml", "shipped oem.xml"); }},
        {L"file | " + (configuration / L"user.xml").wstring() + L" | there | absent",
         [&] { std::filesystem::remove(configuration / L"user.xml"); },
         [&] { test::PutFile(configuration / L"user.xml", "the user's own"); }},
        {L"directory | " + configuration.wstring(),
         [&] {
             ::CreateHardLinkW((configuration / L"link").c_str(),
                               (configuration / L"user.xml").c_str(), nullptr);
         },
         [&] { std::filesystem::remove(configuration / L"link"); }},
        {L"directory | " + Data(L"ImageCache").wstring(),
         [&] { link.emplace(Data(L"ImageCache\\link"), L"C:\\elsewhere"); }, [&] { link.reset(); }},
        {L"directory | " + nimbus,
         [&] { lists_.lists[nimbus] = L"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FA;;;SY)"; },
         [&] { lists_.lists[nimbus] = L"D:P(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)"; }},
        {L"directory | " + Data(L"Nimbus\\ActivityLog").wstring(),
         [&] { lists_.lists[Data(L"Nimbus\\ActivityLog\\deep\\file")] = L"D:AI(A;;FA;;;WD)"; },
         [&] { lists_.lists.erase(Data(L"Nimbus\\ActivityLog\\deep\\file")); }},
        {L"directory | " + Data(L"Nimbus\\ActivityLog").wstring(),
         [&] { std::filesystem::rename(Data(L"Nimbus\\ActivityLog"), L"C:\\moved"); },
         [&] { std::filesystem::rename(L"C:\\moved", Data(L"Nimbus\\ActivityLog")); }},
        {L"task | VxIdle Task | C:\\Program Files\\Tarsel\\Lumetra\\VxIdleTask.exe for "
         L"S-1-5-32-544 | absent",
         [&] { std::filesystem::remove(tasks / L"VxIdle Task"); },
         [&] { test::PutFile(tasks / L"VxIdle Task", idleTask); }},
        {L"task | VxIdle Task | C:\\Program Files\\Tarsel\\Lumetra\\VxIdleTask.exe for "
         L"S-1-5-32-544 | C:\\Program Files\\Tarsel\\Lumetra\\AnIdleTask.exe for S-1-5-32-544",
         [&] {
             std::string xml = idleTask;
             xml.replace(xml.find("\\VxIdleTask.exe"), 3, "\\An");
             test::PutFile(tasks / L"VxIdle Task", xml);
         },
         [&] { test::PutFile(tasks / L"VxIdle Task", idleTask); }},
        {L"task | Tarsel Lumetra Startup Task | absent | registered",
         [&] { test::Machine::ScheduleTask(L"Tarsel Lumetra Startup Task"); },
         [&] { std::filesystem::remove(tasks / L"Tarsel Lumetra Startup Task"); }},
    };
    for (const Spoiled& each : all) {
        each.spoil();
        EXPECT_THAT(Findings(), ElementsAre(StartsWith(L"DIFFERS | " + each.row)));
        each.mend();
        ASSERT_THAT(Findings(), IsEmpty()) << "after mending " << testing::PrintToString(each.row);
    }

    // With this adapter, the bitmask asks for a feature.
    if (_wgetenv(L"FINASET_ADAPTERS") != nullptr) {
        machine_.WriteSetting(L"MultiInterface_Enabled", 0);
        EXPECT_THAT(Findings(), ElementsAre(L"DIFFERS | setting | " + std::wstring(Parameters) +
                                            L"MultiInterface_Enabled | 1 | 0"));
        machine_.WriteSetting(L"MultiInterface_Enabled", 1);
        test::PutValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tarsel\\Nimbus", L"Tarsel_HWConfig",
                       test::DwordValue(6));
        EXPECT_THAT(Findings(), ElementsAre(HasSubstr(L"Tarsel_HWConfig | 2 | 6")));
    }
    test::EndProcess(ProcessNamed(L"BriskoLU.exe"));
}

TEST_F(VerifiedRun, IsConfirmedByTheProgramItselfExceptForTheMadeUpAccessControlLists) {
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    if (!test::OnWine()) {
        EXPECT_EQ(Call(L""), 0);
        return;
    }
    EXPECT_EQ(Call(L""), 1);
    EXPECT_THAT(printed_, HasSubstr(" ok, 4 DIFFERS, 0 UNKNOWN"));
    EXPECT_THAT(printed_, HasSubstr("DIFFERS  directory  C:\\ProgramData\\Tarsel\\ImageCache: "
                                    "expected without links, D:P(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)"
                                    "(A;OICI;GXGR;;;BU), inherited below it, found a list that is "
                                    "not protected"));
    EXPECT_EQ(Call(L"--json"), 1);
    EXPECT_THAT(printed_,
                AllOf(StartsWith("{\"computer\":\""), EndsWith("]}\r\n"),
                      HasSubstr("\"actions\":15,"), HasSubstr("\"differs\":4,\"unknown\":0,")));
    EXPECT_EQ(Call(L"/FOO"), 2);
    EXPECT_EQ(printed_, "");
}

// Everything that lasts: each file with its size and times, and the registry.
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
        ::_wsystem((L"reg export " + hive + L" C:\\export.reg /y > NUL").c_str());
        state[hive] = test::FileText(L"C:\\export.reg").value();
    }
    for (const wchar_t* const own : {L"C:\\export.reg", L"C:\\printed.txt", L"C:\\complaint.txt"}) {
        state.erase(own);
    }
    return state;
}

TEST_F(VerifiedRun, IsNotTouchedByTheProgram) {
    ASSERT_EQ(machine_.Run().exitCode, 0U);
    Call(L"");  // what a program's first start leaves behind is the system's
    const std::map<std::wstring, std::string> before = WholeMachine();
    ASSERT_GT(before.size(), 1000U);
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
