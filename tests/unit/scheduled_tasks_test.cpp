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
using testing::IsEmpty;

const std::string Success = "     ====> SUCCESS\n";
const std::string Failed = "     ====> FAILED\n";

const std::vector<std::string> CreationOfTheObject = {
    "CoCreateInstance({0F87369F-A4E5-4CFC-BD3E-73E6154572DD}, null, 23, "
    "{00000000-0000-0000-C000-000000000046})",
    "CreateInstance(null)",
    "Run()",
    "QueryInterface()",
};

// A routine that registers or deletes the task, and returns whether it counts as registered: its
// name and the beginning of its output, its calls, how many strings it passes, and the calls of
// which it needs the object.
struct Routine {
    const char* name;
    bool (*run)();
    std::string begin;
    std::vector<std::string> calls;
    int strings;
    std::vector<const char*> objects;
};

const Routine Creation = {
    .name = "CreateScheduledTask",
    .run = [] { return CreateScheduledTask(L"A Task", L"<the xml/>", L"C:\\a b\\x.exe"); },
    .begin = "   Creating Task Name [A Task] for Process [C:\\a b\\x.exe]....\n",
    .calls = {"Connect(missing, missing, missing, missing)", "NewTask(0)",
              "put_XmlText(<the xml/>)", "GetFolder(\\)",
              "RegisterTaskDefinition(A Task, other, 6, empty, empty, 4, empty)"},
    .strings = 3,
    .objects = {"QueryInterface", "NewTask", "GetFolder"},
};

const Routine Deletion = {
    .name = "DeleteScheduledTask",
    .run =
        [] {
            DeleteScheduledTask(L"A Task");
            return false;
        },
    .begin = "   Deleting Task Name [A Task]....\n",
    .calls = {"Connect(missing, missing, missing, missing)", "GetFolder(\\)",
              "DeleteTask(A Task, 0)"},
    .strings = 2,
    .objects = {"QueryInterface", "GetFolder"},
};

// These calls and those that create the object before them, up to the one that begins with `last`,
// or all.
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

class Tasks : public testing::Test {
protected:
    ~Tasks() override { EXPECT_EQ(service_.References(), 0U); }

    // The output, and in `created` whether the task counts as registered.
    std::string Run(const Routine& routine) {
        return Printed([&] { created = routine.run(); });
    }

    // The output of a routine that an error ends.
    static std::string Error(const Routine& routine, HRESULT result,
                             const std::string& description = "(null)") {
        return routine.begin + ErrorLine(routine.name, result, description) + Failed;
    }

    // A step of the routines fails, with this description.
    void Fail(const char* step, HRESULT result, const std::wstring& description) {
        service_.results = {{step, result}};
        service_.leavesErrorInfo = true;
        service_.description = description;
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
    EXPECT_EQ(Run(Creation), Creation.begin + Success);
    EXPECT_TRUE(created);
    EXPECT_EQ(service_.calls.Lines(), CallsUpTo("", Creation.calls));
}

TEST_F(DeleteTask, DeletesItFromTheRootFolder) {
    EXPECT_EQ(Run(Deletion), Deletion.begin + Success);
    EXPECT_EQ(service_.calls.Lines(), CallsUpTo("", Deletion.calls));
}

// A step of a routine, with the result of its failure.
struct Failure {
    const Routine* routine;
    const char* step;
    HRESULT result;
};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << failure.step << " of " << failure.routine->name << " with " << std::hex
         << failure.result;
}

std::vector<Failure> Failures(const Routine& routine, std::initializer_list<const char*> steps) {
    std::vector<Failure> failures;
    for (const char* step : steps) {
        // The first and last of the range of an interface's own codes, the next one, and a code for
        // which the system has no text.
        for (const DWORD result :
             {0x80004005U, 0x80070005U, 0x80040200U, 0x8004FFFFU, 0x80050000U, 0x8ABC1234U}) {
            failures.push_back({&routine, step, static_cast<HRESULT>(result)});
        }
    }
    return failures;
}

// ---- The silent pass

class TasksWithoutObject : public Tasks, public testing::WithParamInterface<Failure> {};

TEST_P(TasksWithoutObject, CountAsDone) {
    const auto& [routine, step, result] = GetParam();
    service_.results = {{step, result}};
    EXPECT_EQ(Run(*routine), routine->begin + Success);
    EXPECT_EQ(created, routine == &Creation);
    EXPECT_EQ(service_.calls.Lines(), CallsUpTo(step, {}));
}

INSTANTIATE_TEST_SUITE_P(Creation, TasksWithoutObject,
                         testing::ValuesIn(Failures(Creation,
                                                    {"CreateInstance", "Run", "QueryInterface"})));
INSTANTIATE_TEST_SUITE_P(Deletion, TasksWithoutObject,
                         testing::ValuesIn(Failures(Deletion,
                                                    {"CreateInstance", "Run", "QueryInterface"})));

TEST(TasksWithoutCom, CountAsDone) {
    EXPECT_EQ(Printed([] {
                  EXPECT_TRUE(Creation.run());
                  Deletion.run();
              }),
              Creation.begin + Success + Deletion.begin + Success);
}

// ---- Errors

class TaskErrors : public Tasks, public testing::WithParamInterface<Failure> {};

TEST_P(TaskErrors, EndTheRoutineWithOneLine) {
    const auto& [routine, step, result] = GetParam();
    service_.results = {{step, result}};
    EXPECT_EQ(Run(*routine), Error(*routine, result));
    EXPECT_FALSE(created);
    EXPECT_EQ(service_.calls.Lines(), CallsUpTo(step, routine->calls));
}

TEST_P(TaskErrors, AreDescribedByTheFailingObject) {
    const auto& [routine, step, result] = GetParam();
    Fail(step, result, L"what is wrong");
    EXPECT_EQ(Run(*routine), Error(*routine, result, "what is wrong"));
}

INSTANTIATE_TEST_SUITE_P(Creation, TaskErrors,
                         testing::ValuesIn(Failures(Creation,
                                                    {"Connect", "NewTask", "put_XmlText",
                                                     "GetFolder", "RegisterTaskDefinition"})));
INSTANTIATE_TEST_SUITE_P(Deletion, TaskErrors,
                         testing::ValuesIn(Failures(Deletion, {"Connect", "GetFolder"})));

TEST_F(CreateTask, PrintsAnEmptyDescriptionAsSuch) {
    Fail("Connect", E_FAIL, L"");
    EXPECT_EQ(Run(Creation), Error(Creation, E_FAIL, ""));
}

TEST_F(CreateTask, PrintsNullForAnErrorObjectWithoutDescription) {
    service_.results = {{"Connect", E_FAIL}};
    service_.leavesErrorInfo = true;
    EXPECT_EQ(Run(Creation), Error(Creation, E_FAIL));
}

TEST_F(CreateTask, TakesNoDescriptionFromAnObjectThatDoesNotSayItLeavesOne) {
    Fail("Connect", E_FAIL, L"left by somebody else");
    service_.supportsErrorInfo = false;
    EXPECT_EQ(Run(Creation), Error(Creation, E_FAIL));
    ::SetErrorInfo(0, nullptr);
}

TEST_F(CreateTask, WritesWhatTheLogCannotHoldAsQuestionMarks) {
    Fail("Connect", E_FAIL, L"a \u4E2D b");
    EXPECT_EQ(Run(Creation), Error(Creation, E_FAIL, "a ? b"));
}

TEST_F(CreateTask, PrintsTheSameLineWithAnotherRuntime) {
    Fail("Connect", E_FAIL, L"what is wrong");
    const test::OtherRuntime runtime;
    EXPECT_EQ(Run(Creation), Error(Creation, E_FAIL, "what is wrong"));
}

TEST_F(CreateTask, PrintsALongDescriptionWhole) {
    Fail("Connect", E_FAIL, std::wstring(20'000, L'x'));
    EXPECT_EQ(Run(Creation), Error(Creation, E_FAIL, std::string(20'000, 'x')));
}

TEST_F(CreateTask, GoesOnAfterASuccessThatIsNotPlain) {
    service_.results = {{"RegisterTaskDefinition", S_FALSE}};
    EXPECT_EQ(Run(Creation), Creation.begin + Success);
    EXPECT_TRUE(created);
}

TEST_F(CreateTask, NeedsNoRegisteredTaskBack) {
    service_.givesNothing = {"RegisterTaskDefinition"};
    EXPECT_EQ(Run(Creation), Creation.begin + Success);
    EXPECT_TRUE(created);
}

TEST_F(CreateTask, FailsWithAnInvalidPointerIfThePlatformGivesNoObject) {
    const ImportHook<&::CoCreateInstance> nothing(
        [](REFCLSID, IUnknown*, DWORD, REFIID, void** object) {
            *object = nullptr;
            return S_OK;
        });
    EXPECT_EQ(Run(Creation), Error(Creation, E_POINTER));
    EXPECT_EQ(Run(Deletion), Error(Deletion, E_POINTER));
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

// Out of memory from one of the strings on, for everyone. The system has no message then.
std::string OutOfMemoryLine(const std::string& routine) {
    return "     ====> " + routine +
           ":[_com_error] Exception 0x8007000e, (null), Unknown error 0x8007000E\n";
}

class TaskRoutines : public Tasks, public testing::WithParamInterface<const Routine*> {};

INSTANTIATE_TEST_SUITE_P(Both, TaskRoutines, testing::Values(&Creation, &Deletion),
                         [](const auto& test) { return test.param->name; });

TEST_P(TaskRoutines, FailWithAnInvalidPointerWhereAnObjectIsMissing) {
    for (const char* step : GetParam()->objects) {
        service_.givesNothing = {step};
        EXPECT_EQ(Run(*GetParam()), Error(*GetParam(), E_POINTER)) << step;
        EXPECT_FALSE(created);
    }
}

TEST_P(TaskRoutines, FailIfMemoryRunsOutForAnyOfTheirStrings) {
    for (int number = 0; number < GetParam()->strings; ++number) {
        const WantOfMemory want(number);
        EXPECT_EQ(Run(*GetParam()), Error(*GetParam(), E_OUTOFMEMORY));
        EXPECT_FALSE(created);
        EXPECT_TRUE(want.Reached());
    }
}

TEST_P(TaskRoutines, ReportThatThereIsNoMemoryAtAll) {
    for (int strings = 0; strings < GetParam()->strings; ++strings) {
        EXPECT_EQ(Printed([&] {
                      const test::NoMemory none(strings);
                      created = GetParam()->run();
                      EXPECT_TRUE(none.Out());
                  }),
                  GetParam()->begin + OutOfMemoryLine(GetParam()->name) + Failed);
        EXPECT_FALSE(created);
    }
}

// The program itself is out of memory, which is no COM error, at one step of a routine.
class TasksWithoutMemory
    : public Tasks,
      public testing::WithParamInterface<std::pair<const Routine*, const char*>> {};

TEST_P(TasksWithoutMemory, PassThatOnWithoutALine) {
    const Routine* routine = GetParam().first;
    service_.onCall = [](std::string_view call) -> std::optional<HRESULT> {
        return call == GetParam().second ? throw std::bad_alloc() : std::nullopt;
    };
    EXPECT_EQ(Printed([&] { EXPECT_THROW(routine->run(), std::bad_alloc); }), routine->begin);
}

INSTANTIATE_TEST_SUITE_P(
    All, TasksWithoutMemory,
    testing::Values(std::pair(&Creation, "Connect"), std::pair(&Creation, "NewTask"),
                    std::pair(&Creation, "put_XmlText"), std::pair(&Creation, "GetFolder"),
                    std::pair(&Creation, "RegisterTaskDefinition"), std::pair(&Deletion, "Connect"),
                    std::pair(&Deletion, "GetFolder"), std::pair(&Deletion, "DeleteTask")),
    [](const auto& test) {
        return std::string(test.param.first->name) + "At" + test.param.second;
    });

TEST_F(DeleteTask, ReportsARefusalWithTheLastErrorAndCountsItAsSuccess) {
    for (const DWORD result : {0x80070002U, 0x80004005U, 0x80070005U, 0xFFFFFFFFU}) {
        service_.results = {{"DeleteTask", static_cast<HRESULT>(result)}};
        service_.lastError = 0x12AB;
        EXPECT_EQ(Run(Deletion),
                  Deletion.begin +
                      "     ====> DeleteScheduledTask:[ERROR] A Task GetLastError 0x000012ab\n" +
                      Success);
    }
}

TEST_F(DeleteTask, ReportsARefusalWithAnotherRuntimeInTheSameLine) {
    service_.results = {{"DeleteTask", E_FAIL}};
    service_.lastError = 0x12AB;
    const test::OtherRuntime runtime;
    EXPECT_EQ(Run(Deletion),
              Deletion.begin +
                  "     ====> DeleteScheduledTask:[ERROR] A Task GetLastError 0x000012ab\n" +
                  Success);
}

TEST_F(DeleteTask, SaysNothingOfASuccessThatIsNotPlain) {
    service_.results = {{"DeleteTask", S_FALSE}};
    EXPECT_EQ(Run(Deletion), Deletion.begin + Success);
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
