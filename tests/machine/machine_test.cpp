#include "machine/machine.h"

#include "machine/linked_libraries.h"
#include "proc/process_lists.h"
#include "support/expected_log.h"
#include "support/on_wine.h"

#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace test;  // the expected log
using enum test::Verdict;
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

// A run with these actions on a machine that has nothing of the product.
Course OnAnEmptyMachine(std::uint32_t actions = 1 | 4 | 8) {
    return {.actions = actions,
            .verdicts = NothingInstalled,
            .staleSettings = false,
            .shipped = std::set<std::wstring>()};
}

// No service to stop is running, but the application is.
const Verdicts NoServiceRuns = {{"Stopping ", Bad}, {"Stopping Application ", Good}};

// The services that a run starts are in this state, and the others are stopped.
void ExpectServices(const MachineState& state, DWORD started) {
    for (const auto& [name, service] : state.services) {
        EXPECT_EQ(service.state, IsStarted(name) ? started : Stopped)
            << testing::PrintToString(name);
    }
    EXPECT_EQ(state.services.size(), ProductServices().size());
}

// The command line of a program with blanks in its path, as it arrives there.
std::string CommandLine(const std::filesystem::path& program, const std::string& arguments) {
    const std::string quote = test::OnWine() ? "\"" : "";
    return quote + program.string() + quote + " " + arguments;
}

// Services that were stopped or started are otherwise unchanged.
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

// The machine after a run that starts what is to run.
MachineState Started(MachineState state) {
    for (auto& [name, service] : state.services) {
        service.state = IsStarted(name) ? Running : Stopped;
    }
    state.applications = {L"BriskoLU.exe"};
    return state;
}

void ExpectLog(const FinishedRun& run, const Course& course) {
    EXPECT_EQ(run.log, LogOf(course));
    EXPECT_EQ(run.exitCode, 0U);
}

TEST(Machine, TheDefaultRunQuitsTheApplicationStopsAllServicesAndStartsWhatIsToRun) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    const MachineState before = machine.Describe();
    for (const auto& [name, service] : before.services) {
        EXPECT_EQ(service.state, Running) << testing::PrintToString(name);
    }

    ExpectLog(machine.Run(), {});

    EXPECT_TRUE(Ended(application, QuitLimit));
    const MachineState after = machine.Describe();
    ExpectOnlyStatesDiffer(before, after);
    ExpectServices(after, Running);
    EXPECT_THAT(after.applications, ElementsAre(L"BriskoLU.exe"));
    EXPECT_EQ(after.settings, Configured({}));
    EXPECT_FALSE(after.staleKey);
    EXPECT_EQ(before.hardwareBitmask, std::nullopt);
    EXPECT_EQ(after.hardwareBitmask, 0U);
    EXPECT_EQ(after.dataFiles, WithShippedFiles({}));
    EXPECT_EQ(after.tasks, ProductTasks());
    EXPECT_THAT(machine.StartsOf(L"Quitline.exe"),
                ElementsAre("Quitline.exe Tarsel\u00AE Lumetra"));
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"),
                ElementsAre(CommandLine(machine.ProgramDirectory() / L"BriskoLU.exe", "-u")));
}

TEST(Machine, ASecondRunFindsTheApplicationGoneAndSomeServicesStopped) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    ASSERT_EQ(machine.Run().exitCode, 0U);
    ASSERT_TRUE(Ended(application, QuitLimit));

    const FinishedRun again = machine.Run();
    ExpectLog(again, {.verdicts = RunsAfterARun(), .staleSettings = false, .configured = true});
    ExpectServices(machine.Describe(), Running);
    EXPECT_LT(again.duration, 25s);  // no waiting for stopped services: 30 s each
}

TEST(Machine, ARunWithNothingInstalledFailsEverywhereAndGoesOnToTheEnd) {
    const Machine machine;
    const FinishedRun run = machine.Run();
    ExpectLog(run, OnAnEmptyMachine());
    EXPECT_LT(run.duration, 10s);  // without waiting
    ExpectState(machine, {.services = {},
                          .applications = {},
                          .settings = Configured({}),
                          .dataFiles = {},
                          .staleKey = false,
                          .tasks = ProductTasks(),
                          .hardwareBitmask = 0});
}

// All are the system's: a compiler's own would have to be shipped. Microsoft's compiler links its C
// runtime in.
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
    ExpectLog(machine.Run(L"/sToP"), {.actions = 1});
    EXPECT_TRUE(Ended(application, QuitLimit));
    const MachineState after = machine.Describe();
    ExpectOnlyStatesDiffer(before, after);
    ExpectServices(after, Stopped);
    EXPECT_THAT(after.applications, IsEmpty());
}

TEST(Machine, TheOptionStartOnlyStarts) {
    Machine machine;
    machine.InstallProduct();
    ExpectLog(machine.Run(L"/StArT"), {.actions = 8});
    ExpectServices(machine.Describe(), Running);
    EXPECT_THAT(machine.StartsOf(L"Quitline.exe"), IsEmpty());
}

TEST(Machine, TheOptionDisableChangesTheStartTypeOfItsServicesAndNothingElse) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = machine.Describe();
    for (const ProcessEntry& entry : DisableList) {
        expected.services.at(entry.name).startType = SERVICE_DISABLED;
    }
    ExpectLog(machine.Run(L"/dIsAbLe"), {.actions = 16});
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.services, expected.services);  // still running, among other things
    EXPECT_EQ(after.applications, expected.applications);
    EXPECT_EQ(after.settings, expected.settings);
}

TEST(Machine, TheOptionConfigureRunsNoOtherStep) {
    Machine machine;
    machine.InstallProduct();
    const MachineState before = machine.Describe();
    ExpectLog(machine.Run(L"/configure"), {.actions = 4});
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.services, before.services);
    EXPECT_EQ(after.applications, before.applications);
    EXPECT_EQ(after.hardwareBitmask, 0U);
}

TEST(Machine, TheUsageTextIsPrintedAndNothingIsDone) {
    Machine machine;
    machine.WriteSetting(L"FinasetAction", 255);
    const FinishedRun run = machine.Run(L"/?");
    EXPECT_EQ(run.log, LogBegin + UsageText() + LogEnd);
    EXPECT_EQ(run.exitCode, 0U);
}

// Command lines and values of FinasetAction, with what a machine without the product then logs.
struct Choice {
    const char* name;
    std::wstring arguments;
    DWORD type = REG_NONE;
    std::string_view value;
    std::uint32_t actions;
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
    ExpectLog(machine.Run(choice.arguments), OnAnEmptyMachine(choice.actions));
}

using namespace std::string_view_literals;

INSTANTIATE_TEST_SUITE_P(
    All, MachineChoices,
    testing::Values(Choice{"UnknownOption", L"/STOPX", REG_NONE, {}, 1 | 4 | 8},
                    Choice{"EmptyArgument", L"\"\"", REG_NONE, {}, 1 | 4 | 8},
                    Choice{"TwoOptions", L"/STOP /START", REG_NONE, {}, 1},
                    Choice{"UnknownBeforeKnown", L"/X /STOP", REG_NONE, {}, 1 | 4 | 8},
                    Choice{"ActionNone", L"", REG_DWORD, "\0\0\0\0"sv, 0},
                    Choice{"ActionUnknownBit", L"", REG_DWORD, "\2\0\0\0"sv, 0},
                    Choice{"ActionDisable", L"", REG_DWORD, "\x10\0\0\0"sv, 16},
                    Choice{"ActionAll", L"", REG_DWORD, "\xFF\0\0\0"sv, 1 | 4 | 8 | 16},
                    Choice{"ActionOfTypeString", L"", REG_SZ, "1\0\0\0"sv, 1 | 4 | 8},
                    Choice{"ActionOf64Bits", L"", REG_QWORD, "\1\0\0\0\0\0\0\0"sv, 1 | 4 | 8},
                    Choice{"OptionBeforeAction", L"/STOP", REG_DWORD, "\x10\0\0\0"sv, 1}),
    [](const auto& choice) { return std::string(choice.param.name); });

TEST(Machine, AServiceThatNeverStopsIsGivenUpAfter30SecondsAndTheNextOneIsStopped) {
    Machine machine;
    machine.InstallProduct();
    machine.InstallService(L"Corvo", L"--never-stops");
    const Utils::KernelHandle application = machine.StartProduct();
    const FinishedRun run = machine.Run(L"/STOP");
    ExpectLog(run, {.actions = 1, .verdicts = {{"Stopping Corvo.", Bad}}});
    EXPECT_THAT(run.duration, AllOf(Ge(30s), Lt(50s)));
    for (const auto& [name, service] : machine.Describe().services) {
        EXPECT_EQ(service.state, name == L"Corvo" ? StopPending : Stopped)
            << testing::PrintToString(name);
    }
}

TEST(Machine, AServiceThatDiesOnStartIsGivenUpAfter10SecondsAndTheNextOneIsStarted) {
    Machine machine;
    machine.InstallProduct();
    machine.InstallService(L"Ardex", L"--start-pending=300 --dies-on-start");
    MachineState expected = Started(machine.Describe());
    expected.services.at(L"Ardex").state = Stopped;
    const FinishedRun run = machine.Run(L"/START");
    ExpectLog(run, {.actions = 8, .verdicts = {{"Starting Ardex.", Bad}}});
    EXPECT_THAT(run.duration, AllOf(Ge(10s), Lt(25s)));
    ExpectState(machine, expected);
}

TEST(Machine, ServicesThatTakeTheirTimeAreWaitedFor) {
    Machine machine;
    machine.InstallProduct(L"--start-pending=700 --stop-pending=700");
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = Started(machine.Describe());
    ExpectLog(machine.Run(), {});
    EXPECT_TRUE(Ended(application, QuitLimit));
    expected.settings = Configured({});
    expected.tasks = ProductTasks();
    expected.hardwareBitmask = 0;
    expected.dataFiles = WithShippedFiles({});
    expected.staleKey = false;
    ExpectState(machine, expected);
}

TEST(Machine, AServiceThatRefusesToStopFailsAndKeepsRunning) {
    Machine machine;
    machine.InstallService(L"Ardex", L"--refuses-stop").Start();
    const FinishedRun run = machine.Run(L"/STOP");
    ExpectLog(run, OnAnEmptyMachine(1));
    EXPECT_EQ(machine.Service(L"Ardex").State(), Running);
    EXPECT_LT(run.duration, 10s);  // without waiting for it
}

TEST(Machine, AServiceThatRunsAlreadyFailsToStart) {
    Machine machine;
    machine.InstallService(L"Tarsel Metrics Service").Start();
    const MachineState before = machine.Describe();
    EXPECT_EQ(before.services.at(L"Tarsel Metrics Service").state, Running);
    ExpectLog(machine.Run(L"/START"), OnAnEmptyMachine(8));
    ExpectState(machine, before);
}

TEST(Machine, TheApplicationIsFoundInAnyCaseAndAsPartOfALongerName) {
    for (const wchar_t* fileName : {L"zefir.EXE", L"AZEFIR.EXE"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(fileName)));
        Machine machine;
        machine.InstallProgram(L"stand_in_quit_helper.exe", L"Quitline.exe");
        machine.InstallProgram(L"stand_in_application.exe", fileName);
        const Utils::KernelHandle application = machine.StartApplication(fileName);
        ExpectLog(machine.Run(L"/STOP"), {.actions = 1, .verdicts = NoServiceRuns});
        EXPECT_TRUE(Ended(application, QuitLimit));
    }
}

// The helper finds its window by the title: the first of them from the top.
TEST(Machine, OfTwoInstancesTheOneWhoseWindowIsOnTopIsAskedToQuit) {
    Machine machine;
    machine.InstallProgram(L"stand_in_quit_helper.exe", L"Quitline.exe");
    machine.InstallProgram(L"stand_in_application.exe", L"ZEFIR.exe");
    const Utils::KernelHandle first = machine.StartApplication(L"ZEFIR.exe");
    const Utils::KernelHandle second = machine.StartApplication(L"ZEFIR.exe");
    ExpectLog(machine.Run(L"/STOP"), {.actions = 1, .verdicts = NoServiceRuns});
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
    // The verdict only means that the helper ended in time.
    ExpectLog(machine.Run(L"/STOP"), {.actions = 1, .verdicts = NoServiceRuns});
    EXPECT_FALSE(Ended(application, 0ms));
}

TEST(Machine, WithoutTheHelperTheApplicationIsLeftRunning) {
    Machine machine;
    machine.InstallProduct();
    machine.RemoveProgram(L"Quitline.exe");
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = machine.Describe();
    ExpectLog(machine.Run(L"/STOP"), {.actions = 1, .verdicts = {{"Stopping Application ", Bad}}});
    EXPECT_FALSE(Ended(application, 0ms));
    for (auto& [name, service] : expected.services) {
        service.state = Stopped;
    }
    ExpectState(machine, expected);
}

TEST(Machine, AHelperThatHangsIsGivenUpAfter30SecondsAndLeftRunning) {
    Machine machine;
    machine.InstallProgram(L"stand_in_companion.exe", L"Quitline.exe");
    machine.InstallProgram(L"stand_in_application.exe", L"ZEFIR.exe");
    const Utils::KernelHandle application = machine.StartApplication(L"ZEFIR.exe");
    const FinishedRun run = machine.Run(L"/STOP");
    ExpectLog(run, {.actions = 1, .verdicts = {{"Stopping ", Bad}}});
    EXPECT_THAT(run.duration, AllOf(Ge(30s), Lt(50s)));
    EXPECT_THAT(machine.Describe().applications,
                UnorderedElementsAre(L"Quitline.exe", L"ZEFIR.exe"));
}

TEST(Machine, WithoutTheCompanionTheServicesAreStillStarted) {
    Machine machine;
    machine.InstallProduct();
    machine.RemoveProgram(L"BriskoLU.exe");
    MachineState expected = Started(machine.Describe());
    ExpectLog(machine.Run(L"/START"),
              {.actions = 8, .verdicts = {{"Starting Application BriskoLU.exe ", Bad}}});
    expected.applications.clear();
    ExpectState(machine, expected);
}

// A run whose log goes nowhere still does its work.
void ExpectWorkDone(Machine& machine, HANDLE output) {
    machine.InstallProduct();
    EXPECT_EQ(machine.Run(L"", output), 0U);
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.settings.at(L"FirstRun"), L"0");
    EXPECT_EQ(after.dataFiles, WithShippedFiles({}));
    ExpectServices(after, Running);
}

TEST(Machine, ARunWithoutStandardOutputDoesItsWork) {
    Machine machine;
    ExpectWorkDone(machine, nullptr);
}

TEST(Machine, ARunWhoseStandardOutputIsAnInvalidHandleDoesItsWork) {
    Machine machine;
    ExpectWorkDone(machine, INVALID_HANDLE_VALUE);
}

TEST(Machine, ARunWhoseLogGoesToAPipeWithoutAReaderDoesItsWork) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    ASSERT_TRUE(::CreatePipe(&reader, &writer, &inheritable, 0));
    ::CloseHandle(reader);
    const Utils::KernelHandle writerOwner(writer);
    Machine machine;
    ExpectWorkDone(machine, writer);
}

// The host of Wine has a file that is always full.
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

TEST(Machine, AProgramDirectoryMayHaveManyBlanks) {
    Machine machine(L"C:\\A place  with\\many blanks in it");
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    ExpectLog(machine.Run(), {.programDirectory = machine.ProgramDirectory().string()});
    EXPECT_TRUE(Ended(application, QuitLimit));
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"),
                ElementsAre(CommandLine(machine.ProgramDirectory() / L"BriskoLU.exe", "-u")));
}

}  // namespace
