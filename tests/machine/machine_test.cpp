#include "machine/machine.h"

#include "machine/expected_log.h"
#include "machine/linked_libraries.h"
#include "support/log_texts.h"
#include "support/on_wine.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace test;  // the expected log
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;
using testing::UnorderedElementsAre;

constexpr DWORD Stopped = SERVICE_STOPPED;
constexpr DWORD StopPending = SERVICE_STOP_PENDING;
constexpr DWORD Running = SERVICE_RUNNING;

constexpr std::chrono::seconds QuitLimit{10};  // for an application that was asked to quit

// The log of a default run on a machine that has nothing of the product.
std::string DefaultLogOfAnEmptyMachine() {
    return WholeLog(StopSection(ApplicationNotFound + NoServiceStopped) + EmptyConfigureSection +
                    StartSection(NothingStarted));
}

// The data files of a machine that was configured from the shipped ones.
std::map<std::wstring, std::string> ShippedConfiguration() {
    return {{L"Nimbus\\ConfigurationFiles\\oem.xml", "shipped oem.xml"},
            {L"Nimbus\\ConfigurationFiles\\user.xml", "shipped user.xml"},
            {L"Nimbus\\ConfigurationFiles\\vx.stg", "shipped vx.stg"}};
}

// The state of each service, in the product's order.
std::vector<DWORD> ServiceStates(const MachineState& state) {
    std::vector<DWORD> states;
    states.reserve(test::ProductServices.size());
    for (const std::wstring& name : test::ProductServices) {
        states.push_back(state.services.at(name).state);
    }
    return states;
}

// The command line that a program with blanks in its path is started with, as it arrives there.
std::string Started(const std::filesystem::path& program, const std::string& arguments) {
    const std::string quote = test::OnWine() ? "\"" : "";
    return quote + program.string() + quote + " " + arguments;
}

// Services that were stopped or started are as they were in every other way.
void ExpectOnlyStatesDiffer(const MachineState& before, const MachineState& after) {
    for (auto [name, service] : before.services) {
        service.state = after.services.at(name).state;
        EXPECT_EQ(after.services.at(name), service) << testing::PrintToString(name);
    }
}

// The whole machine.
void ExpectState(const Machine& machine, const MachineState& expected) {
    const MachineState actual = machine.Describe();
    for (const auto& [name, service] : expected.services) {
        EXPECT_EQ(actual.services.at(name), service) << testing::PrintToString(name);
    }
    EXPECT_EQ(actual.services.size(), expected.services.size());
    EXPECT_EQ(actual.applications, expected.applications);
    EXPECT_EQ(actual.settings, expected.settings);
    EXPECT_EQ(actual.dataFiles, expected.dataFiles);
    EXPECT_EQ(actual.staleKey, expected.staleKey);
    EXPECT_EQ(actual.tasks, expected.tasks);
    EXPECT_EQ(actual.hardwareBitmask, expected.hardwareBitmask);
}

// Gives each service its state, in the product's order.
void SetServiceStates(MachineState& state, std::initializer_list<DWORD> states) {
    auto name = test::ProductServices.begin();
    for (const DWORD each : states) {
        state.services.at(*name++).state = each;
    }
}

void ExpectLog(const FinishedRun& run, const std::string& log) {
    EXPECT_EQ(run.log, log);
    EXPECT_EQ(run.exitCode, 0U);
}

TEST(Machine, TheDefaultRunQuitsTheApplicationStopsAllServicesAndStartsWhatIsToRun) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    const MachineState before = machine.Describe();
    EXPECT_THAT(ServiceStates(before), ElementsAre(Running, Running, Running, Running, Running,
                                                   Running, Running, Running));

    ExpectLog(machine.Run(), WholeLog(StopSection(AskedToQuit + AllServicesStopped) +
                                      FirstConfigureSection + StartSection(AllStarted)));

    EXPECT_TRUE(Ended(application, QuitLimit));
    const MachineState after = machine.Describe();
    ExpectOnlyStatesDiffer(before, after);
    EXPECT_THAT(ServiceStates(after), ElementsAre(Stopped, Stopped, Stopped, Stopped, Running,
                                                  Running, Running, Running));
    EXPECT_THAT(after.applications, ElementsAre(L"BriskoLU.exe"));
    EXPECT_EQ(after.settings, (std::map<std::wstring, std::wstring>{{L"FirstRun", L"0"}}));
    EXPECT_FALSE(after.staleKey);
    EXPECT_EQ(before.hardwareBitmask, std::nullopt);
    EXPECT_EQ(after.hardwareBitmask, 0U);
    EXPECT_EQ(after.dataFiles, ShippedConfiguration());
    EXPECT_THAT(after.tasks, ElementsAre(L"VxIdle Task"));
    EXPECT_THAT(machine.StartsOf(L"Quitline.exe"),
                ElementsAre("Quitline.exe Tarsel\u00AE Lumetra"));
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"),
                ElementsAre(Started(machine.ProgramDirectory() / L"BriskoLU.exe", "-u")));
}

TEST(Machine, ASecondRunFindsTheApplicationGoneAndSomeServicesStopped) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    ASSERT_EQ(machine.Run().exitCode, 0U);
    ASSERT_TRUE(Ended(application, QuitLimit));

    const FinishedRun again = machine.Run();
    ExpectLog(again, WholeLog(StopSection(ApplicationNotFound +
                                          "Stopping brisko network service x64....stop failed!\n"
                                          "Stopping hvnetsvc....stop failed!\n"
                                          "Stopping Corvo....stop failed!\n"
                                          "Stopping TarselHubService....stop failed!\n"
                                          "Stopping Tarsel Nimbus Network Service....stopped\n"
                                          "Stopping Ardex....stopped\n"
                                          "Stopping Tarsel Metrics Service....stopped\n"
                                          "Stopping Tarsel Data Relay Service....stopped\n") +
                              LaterConfigureSection + StartSection(AllStarted)));
    EXPECT_THAT(ServiceStates(machine.Describe()), ElementsAre(Stopped, Stopped, Stopped, Stopped,
                                                               Running, Running, Running, Running));
    EXPECT_LT(again.duration, 25s);  // what is stopped already is not waited for: 30 s each
}

TEST(Machine, ARunWithNothingInstalledFailsEverywhereAndGoesOnToTheEnd) {
    const Machine machine;
    const FinishedRun run = machine.Run();
    ExpectLog(run, DefaultLogOfAnEmptyMachine());
    EXPECT_LT(run.duration, 10s);  // nothing was waited for
    ExpectState(machine, {.services = {},
                          .applications = {},
                          .settings = {{L"FirstRun", L"0"}},
                          .dataFiles = {},
                          .staleKey = false,
                          .tasks = {L"VxIdle Task"},
                          .hardwareBitmask = 0});
}

// All of them are the system's: one of the compiler's own would have to be shipped. Microsoft's
// links its C runtime in.
TEST(Machine, TheProgramIsLinkedWithNothingButTheSystem) {
    EXPECT_THAT(LinkedLibraries(BesideThisProgram(L"Finaset.exe")),
                testing::IsSubsetOf(
                    {"ADVAPI32.dll", "KERNEL32.dll", "msvcrt.dll", "ole32.dll", "OLEAUT32.dll"}));
}

TEST(Machine, TheProgramNeedsNoFileBesideIt) {
    const Machine machine;
    const std::vector<std::filesystem::path> files(
        std::filesystem::directory_iterator(machine.ProgramDirectory()), {});
    EXPECT_THAT(files, ElementsAre(machine.ProgramDirectory() / L"Finaset.exe"));
    EXPECT_EQ(machine.Run(L"/?").exitCode, 0U);
}

TEST(Machine, TheOptionStopOnlyStops) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    const MachineState before = machine.Describe();
    ExpectLog(machine.Run(L"/sToP"), WholeLog(StopSection(AskedToQuit + AllServicesStopped)));
    EXPECT_TRUE(Ended(application, QuitLimit));
    const MachineState after = machine.Describe();
    ExpectOnlyStatesDiffer(before, after);
    EXPECT_THAT(ServiceStates(after), ElementsAre(Stopped, Stopped, Stopped, Stopped, Stopped,
                                                  Stopped, Stopped, Stopped));
    EXPECT_THAT(after.applications, IsEmpty());
}

TEST(Machine, TheOptionStartOnlyStarts) {
    Machine machine;
    machine.InstallProduct();
    ExpectLog(machine.Run(L"/StArT"), WholeLog(StartSection(AllStarted)));
    EXPECT_THAT(ServiceStates(machine.Describe()), ElementsAre(Stopped, Stopped, Stopped, Stopped,
                                                               Running, Running, Running, Running));
    EXPECT_THAT(machine.StartsOf(L"Quitline.exe"), IsEmpty());
}

TEST(Machine, TheOptionDisableChangesTheStartTypeOfSixServicesAndNothingElse) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = machine.Describe();
    for (const wchar_t* name : {L"Corvo", L"TarselHubService", L"Ardex", L"Tarsel Metrics Service",
                                L"Tarsel Nimbus Network Service", L"Tarsel Data Relay Service"}) {
        expected.services[name].startType = SERVICE_DISABLED;
    }
    ExpectLog(machine.Run(L"/dIsAbLe"), WholeLog(DisableSection));
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.services, expected.services);  // running on, among other things
    EXPECT_EQ(after.applications, expected.applications);
    EXPECT_EQ(after.settings, expected.settings);
}

TEST(Machine, TheOptionConfigureRunsNoOtherStep) {
    Machine machine;
    machine.InstallProduct();
    const MachineState before = machine.Describe();
    ExpectLog(machine.Run(L"/configure"), WholeLog(FirstConfigureSection));
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.services, before.services);
    EXPECT_EQ(after.applications, before.applications);
    EXPECT_EQ(after.hardwareBitmask, 0U);
}

TEST(Machine, TheUsageTextIsPrintedAndNothingIsDone) {
    Machine machine;
    machine.WriteSetting(L"FinasetAction", 255);
    ExpectLog(machine.Run(L"/?"), LogBegin + UsageText() + LogEnd);
}

// Command lines and values of FinasetAction, with what a machine without the product then logs.
struct Choice {
    const char* name;
    std::wstring arguments;
    DWORD type = REG_NONE;
    std::string_view value;
    std::string log;
};

void PrintTo(const Choice& choice, std::ostream* out) {
    *out << choice.name;
}

class MachineChoices : public testing::TestWithParam<Choice> {};

TEST_P(MachineChoices, DecideWhatRuns) {
    const Choice& choice = GetParam();
    Machine machine;
    if (choice.type != REG_NONE) {
        machine.WriteSetting(L"FinasetAction", choice.type, choice.value);
    }
    ExpectLog(machine.Run(choice.arguments), choice.log);
}

std::string LogOfAFailedStop() {
    return WholeLog(StopSection(ApplicationNotFound + NoServiceStopped));
}

using namespace std::string_view_literals;

INSTANTIATE_TEST_SUITE_P(
    All, MachineChoices,
    testing::Values(
        Choice{"UnknownOption", L"/STOPX", REG_NONE, {}, DefaultLogOfAnEmptyMachine()},
        Choice{"EmptyArgument", L"\"\"", REG_NONE, {}, DefaultLogOfAnEmptyMachine()},
        Choice{"TwoOptions", L"/STOP /START", REG_NONE, {}, LogOfAFailedStop()},
        Choice{"UnknownBeforeKnown", L"/X /STOP", REG_NONE, {}, DefaultLogOfAnEmptyMachine()},
        Choice{"ActionNone", L"", REG_DWORD, "\0\0\0\0"sv, WholeLog("")},
        Choice{"ActionUnknownBit", L"", REG_DWORD, "\2\0\0\0"sv, WholeLog("")},
        Choice{"ActionDisable", L"", REG_DWORD, "\x10\0\0\0"sv, WholeLog(FailedDisableSection)},
        Choice{
            "ActionAll", L"", REG_DWORD, "\xFF\0\0\0"sv,
            WholeLog(StopSection(ApplicationNotFound + NoServiceStopped) + EmptyConfigureSection +
                     StartSection(NothingStarted) + FailedDisableSection)},
        Choice{"ActionOfTypeString", L"", REG_SZ, "1\0\0\0"sv, DefaultLogOfAnEmptyMachine()},
        Choice{"ActionOf64Bits", L"", REG_QWORD, "\1\0\0\0\0\0\0\0"sv,
               DefaultLogOfAnEmptyMachine()},
        Choice{"OptionBeforeAction", L"/STOP", REG_DWORD, "\x10\0\0\0"sv, LogOfAFailedStop()}),
    [](const auto& choice) { return std::string(choice.param.name); });

TEST(Machine, AServiceThatNeverStopsIsGivenUpAfter30SecondsAndTheNextOneIsStopped) {
    Machine machine;
    machine.InstallProduct();
    machine.InstallService(L"Corvo", L"--never-stops");
    const Utils::KernelHandle application = machine.StartProduct();
    const FinishedRun run = machine.Run(L"/STOP");
    ExpectLog(run, WholeLog(StopSection(AskedToQuit +
                                        "Stopping brisko network service x64....stopped\n"
                                        "Stopping hvnetsvc....stopped\n"
                                        "Stopping Corvo....stop failed!\n"
                                        "Stopping TarselHubService....stopped\n"
                                        "Stopping Tarsel Nimbus Network Service....stopped\n"
                                        "Stopping Ardex....stopped\n"
                                        "Stopping Tarsel Metrics Service....stopped\n"
                                        "Stopping Tarsel Data Relay Service....stopped\n")));
    EXPECT_THAT(run.duration, AllOf(Ge(30s), Lt(50s)));
    EXPECT_THAT(
        ServiceStates(machine.Describe()),
        ElementsAre(Stopped, Stopped, StopPending, Stopped, Stopped, Stopped, Stopped, Stopped));
}

TEST(Machine, AServiceThatDiesOnStartIsGivenUpAfter10SecondsAndTheNextOneIsStarted) {
    Machine machine;
    machine.InstallProduct();
    machine.InstallService(L"Ardex", L"--start-pending=300 --dies-on-start");
    MachineState expected = machine.Describe();
    const FinishedRun run = machine.Run(L"/START");
    ExpectLog(run, WholeLog(StartSection(
                       "Starting Application BriskoLU.exe with command line -u....started\n"
                       "Starting Ardex....start failed!\n"
                       "Starting Tarsel Metrics Service....started\n"
                       "Starting Tarsel Nimbus Network Service....started\n"
                       "Starting Tarsel Data Relay Service....started\n")));
    EXPECT_THAT(run.duration, AllOf(Ge(10s), Lt(25s)));
    SetServiceStates(expected,
                     {Stopped, Stopped, Stopped, Stopped, Running, Stopped, Running, Running});
    expected.applications = {L"BriskoLU.exe"};
    ExpectState(machine, expected);
}

TEST(Machine, ServicesThatTakeTheirTimeAreWaitedFor) {
    Machine machine;
    machine.InstallProduct(L"--start-pending=700 --stop-pending=700");
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = machine.Describe();
    ExpectLog(machine.Run(), WholeLog(StopSection(AskedToQuit + AllServicesStopped) +
                                      FirstConfigureSection + StartSection(AllStarted)));
    EXPECT_TRUE(Ended(application, QuitLimit));
    SetServiceStates(expected,
                     {Stopped, Stopped, Stopped, Stopped, Running, Running, Running, Running});
    expected.applications = {L"BriskoLU.exe"};
    expected.settings = {{L"FirstRun", L"0"}};
    expected.tasks = {L"VxIdle Task"};
    expected.hardwareBitmask = 0;
    expected.dataFiles = ShippedConfiguration();
    expected.staleKey = false;
    ExpectState(machine, expected);
}

TEST(Machine, AServiceThatRefusesToStopFailsAndRunsOn) {
    Machine machine;
    machine.InstallService(L"Ardex", L"--refuses-stop").Start();
    const FinishedRun run = machine.Run(L"/STOP");
    ExpectLog(run, LogOfAFailedStop());
    EXPECT_EQ(machine.Service(L"Ardex").State(), Running);
    EXPECT_LT(run.duration, 10s);  // it was not waited for
}

TEST(Machine, AServiceThatRunsAlreadyFailsToStart) {
    Machine machine;
    machine.InstallService(L"Tarsel Metrics Service").Start();
    const MachineState before = machine.Describe();
    EXPECT_EQ(before.services.at(L"Tarsel Metrics Service").state, Running);
    ExpectLog(machine.Run(L"/START"), WholeLog(StartSection(NothingStarted)));
    ExpectState(machine, before);
}

TEST(Machine, TheApplicationIsFoundInAnyCaseAndAsPartOfALongerName) {
    for (const wchar_t* fileName : {L"zefir.EXE", L"AZEFIR.EXE"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(fileName)));
        Machine machine;
        machine.InstallProgram(L"stand_in_quit_helper.exe", L"Quitline.exe");
        machine.InstallProgram(L"stand_in_application.exe", fileName);
        const Utils::KernelHandle application = machine.StartApplication(fileName);
        ExpectLog(machine.Run(L"/STOP"), WholeLog(StopSection(AskedToQuit + NoServiceStopped)));
        EXPECT_TRUE(Ended(application, QuitLimit));
    }
}

// The helper finds its window by the title, and that is the first of them from the top.
TEST(Machine, OfTwoInstancesTheOneWhoseWindowIsOnTopIsAskedToQuit) {
    Machine machine;
    machine.InstallProgram(L"stand_in_quit_helper.exe", L"Quitline.exe");
    machine.InstallProgram(L"stand_in_application.exe", L"ZEFIR.exe");
    const Utils::KernelHandle first = machine.StartApplication(L"ZEFIR.exe");
    const Utils::KernelHandle second = machine.StartApplication(L"ZEFIR.exe");
    ExpectLog(machine.Run(L"/STOP"), WholeLog(StopSection(AskedToQuit + NoServiceStopped)));
    EXPECT_THAT(machine.StartsOf(L"Quitline.exe"),
                ElementsAre("Quitline.exe Tarsel\u00AE Lumetra"));
    EXPECT_TRUE(Ended(second, QuitLimit));
    EXPECT_FALSE(Ended(first, 0ms));
    EXPECT_THAT(machine.Describe().applications, ElementsAre(L"ZEFIR.exe"));
}

TEST(Machine, AnApplicationWithAnotherTitleIsLeftRunning) {
    Machine machine;
    machine.InstallProgram(L"stand_in_quit_helper.exe", L"Quitline.exe");
    machine.InstallProgram(L"stand_in_application.exe", L"ZEFIR.exe");
    const Utils::KernelHandle application =
        machine.StartApplication(L"ZEFIR.exe", L"Another window with blanks");
    // The helper's ending in time is all that the verdict speaks of.
    ExpectLog(machine.Run(L"/STOP"), WholeLog(StopSection(AskedToQuit + NoServiceStopped)));
    EXPECT_FALSE(Ended(application, 0ms));
}

TEST(Machine, WithoutTheHelperTheApplicationIsLeftRunning) {
    Machine machine;
    machine.InstallProduct();
    machine.RemoveProgram(L"Quitline.exe");
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = machine.Describe();
    ExpectLog(machine.Run(L"/STOP"), WholeLog(StopSection(NotAskedToQuit + AllServicesStopped)));
    EXPECT_FALSE(Ended(application, 0ms));
    SetServiceStates(expected,
                     {Stopped, Stopped, Stopped, Stopped, Stopped, Stopped, Stopped, Stopped});
    ExpectState(machine, expected);
}

TEST(Machine, AHelperThatHangsIsGivenUpAfter30SecondsAndLeftRunning) {
    Machine machine;
    machine.InstallProgram(L"stand_in_companion.exe", L"Quitline.exe");
    machine.InstallProgram(L"stand_in_application.exe", L"ZEFIR.exe");
    const Utils::KernelHandle application = machine.StartApplication(L"ZEFIR.exe");
    const FinishedRun run = machine.Run(L"/STOP");
    ExpectLog(run, WholeLog(StopSection(NotAskedToQuit + NoServiceStopped)));
    EXPECT_THAT(run.duration, AllOf(Ge(30s), Lt(50s)));
    EXPECT_THAT(machine.Describe().applications,
                UnorderedElementsAre(L"Quitline.exe", L"ZEFIR.exe"));
}

TEST(Machine, WithoutTheCompanionTheServicesAreStartedAllTheSame) {
    Machine machine;
    machine.InstallProduct();
    machine.RemoveProgram(L"BriskoLU.exe");
    MachineState expected = machine.Describe();
    ExpectLog(machine.Run(L"/START"),
              WholeLog(StartSection(
                  "Starting Application BriskoLU.exe with command line -u....start failed!\n"
                  "Starting Ardex....started\n"
                  "Starting Tarsel Metrics Service....started\n"
                  "Starting Tarsel Nimbus Network Service....started\n"
                  "Starting Tarsel Data Relay Service....started\n")));
    SetServiceStates(expected,
                     {Stopped, Stopped, Stopped, Stopped, Running, Running, Running, Running});
    ExpectState(machine, expected);
}

// A run whose log goes nowhere does its work all the same.
void ExpectWorkDone(Machine& machine, HANDLE output) {
    machine.InstallProduct();
    EXPECT_EQ(machine.Run(L"", output), 0U);
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.settings.at(L"FirstRun"), L"0");
    EXPECT_EQ(after.dataFiles, ShippedConfiguration());
    EXPECT_THAT(ServiceStates(after), ElementsAre(Stopped, Stopped, Stopped, Stopped, Running,
                                                  Running, Running, Running));
}

TEST(Machine, ARunWithoutStandardOutputDoesItsWork) {
    Machine machine;
    ExpectWorkDone(machine, nullptr);
}

TEST(Machine, ARunWhoseStandardOutputIsAnInvalidHandleDoesItsWork) {
    Machine machine;
    ExpectWorkDone(machine, INVALID_HANDLE_VALUE);
}

TEST(Machine, ARunWhoseLogGoesToAPipeThatNobodyReadsAnyMoreDoesItsWork) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    ASSERT_TRUE(::CreatePipe(&reader, &writer, &inheritable, 0));
    ::CloseHandle(reader);
    const Utils::KernelHandle writerOwner(writer);
    Machine machine;
    ExpectWorkDone(machine, writer);
}

// The computer below Wine has a file that is always full.
TEST(Machine, ARunWhoseLogGoesToAFullDiskDoesItsWork) {
    if (!test::OnWine()) {
        GTEST_SKIP() << "there is no full disk here";
    }
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    const Utils::KernelHandle file(::CreateFileW(L"Z:\\dev\\full", GENERIC_WRITE,
                                                 FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                                 OPEN_EXISTING, 0, nullptr));
    DWORD written = 0;
    ASSERT_FALSE(::WriteFile(file.Get(), "x", 1, &written, nullptr));
    ASSERT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
    Machine machine;
    ExpectWorkDone(machine, file.Get());
}

TEST(Machine, AProgramDirectoryWithManyBlanksServes) {
    Machine machine(L"C:\\A place  with\\many blanks in it");
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    ExpectLog(
        machine.Run(),
        WholeLog(StopSection(AskedToQuit + AllServicesStopped) + DeletedSettings(true) +
                 FilesOfAFirstInstallation + SecuredDirectories(true) + SettingsAndHardware() +
                 ScheduledTasks({.directory = machine.ProgramDirectory().string()}) +
                 StartSection(AllStarted)));
    EXPECT_TRUE(Ended(application, QuitLimit));
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"),
                ElementsAre(Started(machine.ProgramDirectory() / L"BriskoLU.exe", "-u")));
}

}  // namespace
