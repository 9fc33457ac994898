#include "tasks/scheduled_tasks.h"

#include "support/console_capture.h"
#include "support/fake_processes.h"
#include "support/fake_task_service.h"
#include "support/import_hook.h"
#include "support/initialised_com.h"
#include "support/no_memory.h"
#include "support/other_runtime.h"
#include "tasks/com.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <objbase.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using test::ImportHook;
using test::Narrow;
using test::Printed;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::string Creating = "   Creating Task Name [A Task] for Process [C:\\a b\\x.exe]....\n";
const std::string Deleting = "   Deleting Task Name [A Task]....\n";
const std::string Success = "     ====> SUCCESS\n";
const std::string Failed = "     ====> FAILED\n";

const std::vector<std::string> CreationOfTheObject = {
    "CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 23, "
    "{00000000-0000-0000-C000-000000000046})",
    "CreateInstance(null)",
    "Run()",
    "QueryInterface()",
};
const std::vector<std::string> Registration = {
    "Connect(missing, missing, missing, missing)",
    "NewTask(0)",
    "put_XmlText(<the xml/>)",
    "GetFolder(\\)",
    "RegisterTaskDefinition(A Task, other, 6, empty, empty, 4, empty)",
};
const std::vector<std::string> Deletion = {
    "Connect(missing, missing, missing, missing)",
    "GetFolder(\\)",
    "DeleteTask(A Task, 0)",
};

// The calls of a routine up to the one that begins with `last`, or all of them.
std::vector<std::string> CallsUpTo(const std::string& last,
                                   const std::vector<std::string>& routine) {
    std::vector<std::string> calls = CreationOfTheObject;
    calls.insert(calls.end(), routine.begin(), routine.end());
    for (std::size_t index = 0; index < calls.size(); ++index) {
        if (calls[index].starts_with(last + "(")) {
            calls.resize(index + 1);
            break;
        }
    }
    return calls;
}

std::vector<std::string> AllCalls(const std::vector<std::string>& routine) {
    return CallsUpTo("", routine);
}

class Tasks : public testing::Test {
protected:
    ~Tasks() override { EXPECT_EQ(service_.References(), 0U); }

    // The output, and in `created` whether the task counts as registered.
    std::string Create() {
        return Printed(
            [this] { created = CreateScheduledTask(L"A Task", L"<the xml/>", L"C:\\a b\\x.exe"); });
    }
    static std::string Delete() {
        return Printed([] { DeleteScheduledTask(L"A Task"); });
    }

    // The line of an error in a routine.
    static std::string ErrorLine(const std::string& routine, HRESULT result,
                                 const std::string& description) {
        char code[16] = {};
        std::snprintf(code, sizeof(code), "0x%08lx", static_cast<unsigned long>(result));
        return "     ====> " + routine + ":[_com_error] Exception " + code + ", " + description +
               ", " + Narrow(Utils::ComError(result).MessageText()) + "\n";
    }

    bool created = false;

private:
    test::InitialisedCom com_;

protected:
    test::FakeTaskService service_;
};

using CreateTask = Tasks;
using DeleteTask = Tasks;

TEST_F(CreateTask, RegistersTheXmlInTheRootFolder) {
    EXPECT_EQ(Create(), Creating + Success);
    EXPECT_TRUE(created);
    EXPECT_THAT(service_.calls.Lines(), ElementsAreArray(AllCalls(Registration)));
}

TEST_F(DeleteTask, DeletesItFromTheRootFolder) {
    EXPECT_EQ(Delete(), Deleting + Success);
    EXPECT_THAT(service_.calls.Lines(), ElementsAreArray(AllCalls(Deletion)));
}

// A step of a routine, with the result of its failure.
struct Failure {
    const char* step;
    HRESULT result;
};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << failure.step << " with " << std::hex << failure.result;
}

std::vector<Failure> Failures(std::initializer_list<const char*> steps) {
    std::vector<Failure> failures;
    for (const char* step : steps) {
        // The first and last of the range of an interface's own codes, the next one, and a code for
        // which the system has no text.
        for (const DWORD result :
             {0x80004005U, 0x80070005U, 0x80040200U, 0x8004FFFFU, 0x80050000U, 0x8ABC1234U}) {
            failures.push_back({step, static_cast<HRESULT>(result)});
        }
    }
    return failures;
}

// ---- The silent pass

class TasksWithoutObject : public Tasks, public testing::WithParamInterface<Failure> {};

TEST_P(TasksWithoutObject, CountAsCreated) {
    const auto& [step, result] = GetParam();
    service_.results = {{step, result}};
    EXPECT_EQ(Create(), Creating + Success);
    EXPECT_TRUE(created);
    EXPECT_THAT(service_.calls.Lines(), ElementsAreArray(CallsUpTo(step, {})));
}

TEST_P(TasksWithoutObject, CountAsDeleted) {
    const auto& [step, result] = GetParam();
    service_.results = {{step, result}};
    EXPECT_EQ(Delete(), Deleting + Success);
    EXPECT_THAT(service_.calls.Lines(), ElementsAreArray(CallsUpTo(step, {})));
}

INSTANTIATE_TEST_SUITE_P(All, TasksWithoutObject,
                         testing::ValuesIn(Failures({"CreateInstance", "Run", "QueryInterface"})));

TEST(TasksWithoutCom, CountAsDone) {
    EXPECT_EQ(Printed([] {
                  EXPECT_TRUE(CreateScheduledTask(L"A Task", L"<the xml/>", L"C:\\a b\\x.exe"));
                  DeleteScheduledTask(L"A Task");
              }),
              Creating + Success + Deleting + Success);
}

// ---- Errors

class CreateTaskErrors : public Tasks, public testing::WithParamInterface<Failure> {};

TEST_P(CreateTaskErrors, EndTheRoutineWithOneLine) {
    const auto& [step, result] = GetParam();
    service_.results = {{step, result}};
    EXPECT_EQ(Create(), Creating + ErrorLine("CreateScheduledTask", result, "(null)") + Failed);
    EXPECT_FALSE(created);
    EXPECT_THAT(service_.calls.Lines(), ElementsAreArray(CallsUpTo(step, Registration)));
}

TEST_P(CreateTaskErrors, AreDescribedByTheFailingObject) {
    const auto& [step, result] = GetParam();
    service_.results = {{step, result}};
    service_.leavesErrorInfo = true;
    service_.description = L"what is wrong";
    EXPECT_EQ(Create(),
              Creating + ErrorLine("CreateScheduledTask", result, "what is wrong") + Failed);
}

INSTANTIATE_TEST_SUITE_P(All, CreateTaskErrors,
                         testing::ValuesIn(Failures({"Connect", "NewTask", "put_XmlText",
                                                     "GetFolder", "RegisterTaskDefinition"})));

class DeleteTaskErrors : public Tasks, public testing::WithParamInterface<Failure> {};

TEST_P(DeleteTaskErrors, EndTheRoutineWithOneLine) {
    const auto& [step, result] = GetParam();
    service_.results = {{step, result}};
    EXPECT_EQ(Delete(), Deleting + ErrorLine("DeleteScheduledTask", result, "(null)") + Failed);
    EXPECT_THAT(service_.calls.Lines(), ElementsAreArray(CallsUpTo(step, Deletion)));
}

TEST_P(DeleteTaskErrors, AreDescribedByTheFailingObject) {
    const auto& [step, result] = GetParam();
    service_.results = {{step, result}};
    service_.leavesErrorInfo = true;
    service_.description = L"what is wrong";
    EXPECT_EQ(Delete(),
              Deleting + ErrorLine("DeleteScheduledTask", result, "what is wrong") + Failed);
}

INSTANTIATE_TEST_SUITE_P(All, DeleteTaskErrors,
                         testing::ValuesIn(Failures({"Connect", "GetFolder"})));

TEST_F(CreateTask, PrintsAnEmptyDescriptionAsSuch) {
    service_.results = {{"Connect", E_FAIL}};
    service_.leavesErrorInfo = true;
    service_.description = L"";
    EXPECT_EQ(Create(), Creating + ErrorLine("CreateScheduledTask", E_FAIL, "") + Failed);
}

TEST_F(CreateTask, PrintsNullForAnErrorObjectWithoutDescription) {
    service_.results = {{"Connect", E_FAIL}};
    service_.leavesErrorInfo = true;
    EXPECT_EQ(Create(), Creating + ErrorLine("CreateScheduledTask", E_FAIL, "(null)") + Failed);
}

TEST_F(CreateTask, TakesNoDescriptionFromAnObjectThatDoesNotSayItLeavesOne) {
    service_.results = {{"Connect", E_FAIL}};
    service_.leavesErrorInfo = true;
    service_.description = L"left by somebody else";
    service_.supportsErrorInfo = false;
    EXPECT_EQ(Create(), Creating + ErrorLine("CreateScheduledTask", E_FAIL, "(null)") + Failed);
    ::SetErrorInfo(0, nullptr);
}

TEST_F(CreateTask, WritesWhatTheLogCannotHoldAsQuestionMarks) {
    service_.results = {{"Connect", E_FAIL}};
    service_.leavesErrorInfo = true;
    service_.description = L"a \u4E2D b";
    EXPECT_EQ(Create(), Creating + ErrorLine("CreateScheduledTask", E_FAIL, "a ? b") + Failed);
}

TEST_F(CreateTask, PrintsTheSameLineWithAnotherRuntime) {
    service_.results = {{"Connect", E_FAIL}};
    service_.leavesErrorInfo = true;
    service_.description = L"what is wrong";
    const test::OtherRuntime runtime;
    EXPECT_EQ(Create(),
              Creating + ErrorLine("CreateScheduledTask", E_FAIL, "what is wrong") + Failed);
}

TEST_F(CreateTask, PrintsALongDescriptionWhole) {
    service_.results = {{"Connect", E_FAIL}};
    service_.leavesErrorInfo = true;
    service_.description = std::wstring(20'000, L'x');
    EXPECT_EQ(
        Create(),
        Creating + ErrorLine("CreateScheduledTask", E_FAIL, std::string(20'000, 'x')) + Failed);
}

TEST_F(CreateTask, GoesOnAfterASuccessThatIsNotPlain) {
    service_.results = {{"RegisterTaskDefinition", S_FALSE}};
    EXPECT_EQ(Create(), Creating + Success);
    EXPECT_TRUE(created);
}

TEST_F(CreateTask, FailsWithAnInvalidPointerWhereAnObjectIsMissing) {
    for (const char* step : {"QueryInterface", "NewTask", "GetFolder"}) {
        service_.givesNothing = {step};
        EXPECT_EQ(Create(),
                  Creating + ErrorLine("CreateScheduledTask", E_POINTER, "(null)") + Failed);
        EXPECT_FALSE(created);
    }
}

TEST_F(CreateTask, NeedsNoRegisteredTaskBack) {
    service_.givesNothing = {"RegisterTaskDefinition"};
    EXPECT_EQ(Create(), Creating + Success);
    EXPECT_TRUE(created);
}

TEST_F(CreateTask, FailsWithAnInvalidPointerIfThePlatformGivesNoObject) {
    const ImportHook<&::CoCreateInstance> nothing(
        [](REFCLSID, IUnknown*, DWORD, REFIID, void** object) {
            *object = nullptr;
            return S_OK;
        });
    EXPECT_EQ(Create(), Creating + ErrorLine("CreateScheduledTask", E_POINTER, "(null)") + Failed);
    EXPECT_EQ(Delete(), Deleting + ErrorLine("DeleteScheduledTask", E_POINTER, "(null)") + Failed);
}

TEST_F(DeleteTask, FailsWithAnInvalidPointerWhereAnObjectIsMissing) {
    for (const char* step : {"QueryInterface", "GetFolder"}) {
        service_.givesNothing = {step};
        EXPECT_EQ(Delete(),
                  Deleting + ErrorLine("DeleteScheduledTask", E_POINTER, "(null)") + Failed);
    }
}

// Out of memory for one of a routine's strings, by its number.
class WantOfMemory {
public:
    explicit WantOfMemory(int number) : number_(number) {}

    [[nodiscard]] bool Reached() const { return number_ < 0; }

private:
    int number_;
    ImportHook<&::SysAllocString> hook_{
        [this](const OLECHAR* text) { return number_-- == 0 ? nullptr : hook_.Forward(text); }};
};

TEST_F(CreateTask, FailsIfMemoryRunsOutForAnyOfItsStrings) {
    for (int number = 0; number < 3; ++number) {
        const WantOfMemory want(number);
        EXPECT_EQ(Create(),
                  Creating + ErrorLine("CreateScheduledTask", E_OUTOFMEMORY, "(null)") + Failed);
        EXPECT_FALSE(created);
        EXPECT_TRUE(want.Reached());
    }
}

TEST_F(DeleteTask, FailsIfMemoryRunsOutForAnyOfItsStrings) {
    for (int number = 0; number < 2; ++number) {
        const WantOfMemory want(number);
        EXPECT_EQ(Delete(),
                  Deleting + ErrorLine("DeleteScheduledTask", E_OUTOFMEMORY, "(null)") + Failed);
        EXPECT_TRUE(want.Reached());
    }
}

// Out of memory from one of the strings on, for everyone. The system has no message then.
std::string OutOfMemoryLine(const std::string& routine) {
    return "     ====> " + routine +
           ":[_com_error] Exception 0x8007000e, (null), Unknown error 0x8007000E\n";
}

TEST_F(CreateTask, ReportsThatThereIsNoMemoryAtAll) {
    for (int strings = 0; strings < 3; ++strings) {
        EXPECT_EQ(Printed([&] {
                      const test::NoMemory none(strings);
                      created = CreateScheduledTask(L"A Task", L"<the xml/>", L"C:\\a b\\x.exe");
                      EXPECT_TRUE(none.Out());
                  }),
                  Creating + OutOfMemoryLine("CreateScheduledTask") + Failed);
        EXPECT_FALSE(created);
    }
}

TEST_F(DeleteTask, ReportsThatThereIsNoMemoryAtAll) {
    for (int strings = 0; strings < 2; ++strings) {
        EXPECT_EQ(Printed([&] {
                      const test::NoMemory none(strings);
                      DeleteScheduledTask(L"A Task");
                      EXPECT_TRUE(none.Out());
                  }),
                  Deleting + OutOfMemoryLine("DeleteScheduledTask") + Failed);
    }
}

// The program itself is out of memory, which is no COM error, at one step of a routine.
class TasksWithoutMemory : public Tasks, public testing::WithParamInterface<const char*> {
protected:
    TasksWithoutMemory() {
        service_.onCall = [](std::string_view call) -> std::optional<HRESULT> {
            return call == GetParam() ? throw std::bad_alloc() : std::nullopt;
        };
    }

    // The routine's output until then.
    static std::string Cut(void (*routine)()) {
        bool thrown = false;
        std::string printed = Printed([&] {
            try {
                routine();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
        });
        EXPECT_TRUE(thrown);
        return printed;
    }
};

using CreateTaskWithoutMemory = TasksWithoutMemory;
using DeleteTaskWithoutMemory = TasksWithoutMemory;

TEST_P(CreateTaskWithoutMemory, PassesThatOnWithoutALine) {
    EXPECT_EQ(Cut([] { CreateScheduledTask(L"A Task", L"<the xml/>", L"C:\\a b\\x.exe"); }),
              Creating);
}

TEST_P(DeleteTaskWithoutMemory, PassesThatOnWithoutALine) {
    EXPECT_EQ(Cut([] { DeleteScheduledTask(L"A Task"); }), Deleting);
}

INSTANTIATE_TEST_SUITE_P(All, CreateTaskWithoutMemory,
                         testing::Values("Connect", "NewTask", "put_XmlText", "GetFolder",
                                         "RegisterTaskDefinition"));
INSTANTIATE_TEST_SUITE_P(All, DeleteTaskWithoutMemory,
                         testing::Values("Connect", "GetFolder", "DeleteTask"));

TEST_F(DeleteTask, ReportsARefusalWithTheLastErrorAndCountsItAsSuccess) {
    for (const DWORD result : {0x80070002U, 0x80004005U, 0x80070005U, 0xFFFFFFFFU}) {
        service_.results = {{"DeleteTask", static_cast<HRESULT>(result)}};
        service_.lastError = 0x12AB;
        EXPECT_EQ(Delete(),
                  Deleting +
                      "     ====> DeleteScheduledTask:[ERROR] A Task GetLastError 0x000012ab\n" +
                      Success);
    }
}

TEST_F(DeleteTask, ReportsARefusalWithAnotherRuntimeInTheSameLine) {
    service_.results = {{"DeleteTask", E_FAIL}};
    service_.lastError = 0x12AB;
    const test::OtherRuntime runtime;
    EXPECT_EQ(Delete(),
              Deleting + "     ====> DeleteScheduledTask:[ERROR] A Task GetLastError 0x000012ab\n" +
                  Success);
}

TEST_F(DeleteTask, SaysNothingOfASuccessThatIsNotPlain) {
    service_.results = {{"DeleteTask", S_FALSE}};
    EXPECT_EQ(Delete(), Deleting + Success);
}

// ---- The table

class ScheduleTasksTest : public Tasks {
protected:
    ScheduleTasksTest() { processes.ownPath = L"C:\\Own Directory\\Finaset.exe"; }

    std::string Schedule(std::span<const ScheduledTaskEntry> tasks) {
        return Printed([&] { scheduled = ScheduleTasks(tasks); });
    }

    // The XML of each registered task, and their names.
    [[nodiscard]] std::vector<std::string> Xmls() const { return service_.calls.Of("put_XmlText"); }

    static std::string CreationLines(const std::string& name, const std::string& process) {
        return "   Creating Task Name [" + name + "] for Process [" + process + "]....\n" + Success;
    }

    test::FakeProcesses processes;
    bool scheduled = false;
    const std::string deletionLines =
        "   Deleting Task Name [Tarsel Lumetra Startup Task]....\n" + Success;
};

TEST_F(ScheduleTasksTest, RegistersTheProductsTasksAndRemovesTheObsoleteOne) {
    std::string lines;
    std::vector<std::string> xmls;
    std::vector<std::string> registrations;
    for (const ScheduledTaskEntry& task : ScheduledTaskTable) {
        const std::string process =
            (task.resolveInOwnFolder ? "C:\\Own Directory\\" : "") + Narrow(task.processName);
        std::string xml = Narrow(task.taskXml);
        xml.replace(xml.find("##PROCESSNAME##"), 15, process);
        lines += CreationLines(Narrow(task.taskName), process);
        xmls.push_back("put_XmlText(" + xml + ")");
        registrations.push_back("RegisterTaskDefinition(" + Narrow(task.taskName) +
                                ", other, 6, empty, empty, 4, empty)");
    }
    EXPECT_EQ(Printed([this] { scheduled = ScheduleTasks(); }), lines + deletionLines);
    EXPECT_TRUE(scheduled);
    EXPECT_EQ(Xmls(), xmls);
    EXPECT_EQ(service_.calls.Of("RegisterTaskDefinition"), registrations);
    EXPECT_THAT(service_.calls.Of("DeleteTask"),
                ElementsAre("DeleteTask(Tarsel Lumetra Startup Task, 0)"));
}

TEST_F(ScheduleTasksTest, OnlyRemovesTheObsoleteTaskIfThereIsNoOther) {
    EXPECT_EQ(Schedule({}), deletionLines);
    EXPECT_TRUE(scheduled);
    EXPECT_THAT(Xmls(), IsEmpty());
}

TEST_F(ScheduleTasksTest, TakesAProgramElsewhereUnchanged) {
    EXPECT_EQ(Schedule({{{L"[##PROCESSNAME##]", false, L"%windir%\\x.exe", L"T"}}}),
              CreationLines("T", "%windir%\\x.exe") + deletionLines);
    EXPECT_THAT(Xmls(), ElementsAre("put_XmlText([%windir%\\x.exe])"));
}

TEST_F(ScheduleTasksTest, PutsTheProgramInPlaceOfTheFirstPlaceholder) {
    for (const auto& [xml, expected] :
         {std::pair{L"##PROCESSNAME##", "x.exe"},
          {L"a##PROCESSNAME##b##PROCESSNAME##", "ax.exeb##PROCESSNAME##"},
          {L"###PROCESSNAME###", "#x.exe#"}}) {
        Schedule({{{xml, false, L"x.exe", L"T"}}});
        EXPECT_EQ(Xmls().back(), "put_XmlText(" + std::string(expected) + ")");
    }
}

TEST_F(ScheduleTasksTest, RegistersXmlWithoutPlaceholderUnchanged) {
    for (const wchar_t* xml : {L"", L"<x/>", L"##processname##", L"##PROCESSNAME#",
                               L"a text that is longer than a placeholder"}) {
        Schedule({{{xml, false, L"x.exe", L"T"}}});
        EXPECT_EQ(Xmls().back(), "put_XmlText(" + Narrow(xml) + ")");
    }
}

TEST_F(ScheduleTasksTest, PutsAPathWithMarkupIntoTheXmlUnescaped) {
    processes.ownPath = L"C:\\R & D <1>\\Finaset.exe";
    Schedule({{{L"<c>##PROCESSNAME##</c>", true, L"x.exe", L"T"}}});
    EXPECT_THAT(Xmls(), ElementsAre("put_XmlText(<c>C:\\R & D <1>\\x.exe</c>)"));
}

TEST_F(ScheduleTasksTest, TakesTheBareNameIfTheOwnDirectoryIsUnknown) {
    processes.ownPath = L"";
    EXPECT_EQ(Schedule({{{L"##PROCESSNAME##", true, L"x.exe", L"T"}}}),
              CreationLines("T", "x.exe") + deletionLines);
}

TEST_F(ScheduleTasksTest, RegistersEveryTaskInOrderAndReturnsTheLastResult) {
    const ScheduledTaskEntry good = {L"g", false, L"g.exe", L"good"};
    const ScheduledTaskEntry bad = {L"b", false, L"b.exe", L"bad"};
    ImportHook<&::SysAllocString> hook([&hook](const OLECHAR* text) {
        return std::wstring(text) == L"b" ? nullptr : hook.Forward(text);
    });
    const std::string badLines = "   Creating Task Name [bad] for Process [b.exe]....\n" +
                                 ErrorLine("CreateScheduledTask", E_OUTOFMEMORY, "(null)") + Failed;
    EXPECT_EQ(Schedule({{bad, good}}), badLines + CreationLines("good", "g.exe") + deletionLines);
    EXPECT_TRUE(scheduled);
    EXPECT_EQ(Schedule({{good, bad}}), CreationLines("good", "g.exe") + badLines + deletionLines);
    EXPECT_FALSE(scheduled);
}

// The deletion still happens; if the service's object cannot be created then, it counts as done.
TEST_F(ScheduleTasksTest, GoesOnToTheDeletionEvenIfThereIsNoMemoryAtAll) {
    const std::vector<ScheduledTaskEntry> tasks = {{L"##PROCESSNAME##", true, L"x.exe", L"T"}};
    for (int strings = 0; strings < 3; ++strings) {
        bool out = false;
        EXPECT_EQ(Printed([&] {
                      const test::NoMemory none(strings);
                      scheduled = ScheduleTasks(tasks);
                      out = none.Out();
                  }),
                  "   Creating Task Name [T] for Process [C:\\Own Directory\\x.exe]....\n" +
                      OutOfMemoryLine("CreateScheduledTask") + Failed + deletionLines);
        EXPECT_TRUE(out);
        EXPECT_FALSE(scheduled);
    }
}

TEST_F(ScheduleTasksTest, IgnoresTheResultOfTheDeletion) {
    ImportHook<&::SysAllocString> hook([&hook](const OLECHAR* text) {
        return std::wstring(text).starts_with(L"Tarsel") ? nullptr : hook.Forward(text);
    });
    EXPECT_EQ(Schedule({{{L"x", false, L"x.exe", L"T"}}}),
              CreationLines("T", "x.exe") +
                  "   Deleting Task Name [Tarsel Lumetra Startup Task]....\n" +
                  ErrorLine("DeleteScheduledTask", E_OUTOFMEMORY, "(null)") + Failed);
    EXPECT_TRUE(scheduled);
}

}  // namespace
