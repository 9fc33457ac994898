// Whole runs against a real task service.

#include "machine/machine.h"
#include "support/call_log.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/on_wine.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace test;  // the expected log
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

constexpr wchar_t IdleTask[] = L"VxIdle Task";

// The definitions of the product's tasks for programs in this directory.
std::vector<std::string> Definitions(const std::string& directory) {
    std::vector<std::string> definitions;
    for (const ScheduledTaskEntry& task : ScheduledTaskTable) {
        const std::string placeholder = "##PROCESSNAME##";
        std::string xml = Narrow(task.taskXml);
        xml.replace(xml.find(placeholder), placeholder.size(),
                    (task.resolveInOwnFolder ? directory + "\\" : "") + Narrow(task.processName));
        definitions.push_back(xml);
    }
    return definitions;
}

// Runs the configure action on a machine with only this program of the product.
void ExpectRun(const Machine& machine, Course course = {}) {
    course.actions = 4;
    course.staleSettings = false;
    course.shipped.emplace();
    course.programDirectory = machine.ProgramDirectory().string();
    EXPECT_EQ(machine.Run(L"/CONFIGURE").log, LogOf(course));
}

// What the task service stores of a task.
std::string Stored(const wchar_t* task) {
    return FileText(std::filesystem::path(L"C:\\windows\\system32\\tasks") / task).value();
}

class ScheduledTasks : public testing::Test {
    void SetUp() override {
        if (!test::OnWine()) {
            GTEST_SKIP() << "Windows lets nobody replace its Task Scheduler; see OnWindows";
        }
    }
};

TEST_F(ScheduledTasks, AreRegisteredWithTheProgramsPath) {
    const Machine machine;
    ExpectRun(machine);
    EXPECT_EQ(machine.Describe().tasks, ProductTasks());
    EXPECT_EQ(Machine::TaskDefinitions(), Definitions("C:\\Program Files\\Tarsel\\Lumetra"));
    EXPECT_THAT(Stored(IdleTask),
                AllOf(HasSubstr("<Author>Tarsel</Author>"), HasSubstr("<URI>\\VxIdleTask</URI>")));
}

TEST_F(ScheduledTasks, AreReplacedByALaterRun) {
    const Machine machine;
    Machine::ScheduleTask(IdleTask);
    ExpectRun(machine);
    const std::string stored = Stored(IdleTask);
    EXPECT_THAT(stored, HasSubstr("<URI>\\VxIdleTask</URI>"));
    EXPECT_EQ(machine.Run(L"/CONFIGURE").exitCode, 0U);
    EXPECT_EQ(machine.Describe().tasks, ProductTasks());
    EXPECT_EQ(Stored(IdleTask), stored);
    EXPECT_EQ(Machine::TaskDefinitions().size(), 2 * ScheduledTaskTable.size());
}

TEST_F(ScheduledTasks, LoseTheObsoleteOneAndNoOther) {
    const Machine machine;
    Machine::ScheduleTask(L"Tarsel Lumetra Startup Task");
    Machine::ScheduleTask(L"Tarsel Lumetra Startup Task 2");
    ExpectRun(machine, {.startupTask = true});
    std::vector<std::wstring> expected = ProductTasks();
    expected.emplace_back(L"Tarsel Lumetra Startup Task 2");
    EXPECT_THAT(machine.Describe().tasks, UnorderedElementsAreArray(expected));
}

TEST_F(ScheduledTasks, AreSkippedIfTheServiceCannotBeReached) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    Machine::DisconnectTaskService();
    EXPECT_EQ(machine.Run().log, LogOf({.taskError = "0x80070035, (null), Bad network path."}));
    EXPECT_THAT(machine.Describe().tasks, IsEmpty());
}

TEST_F(ScheduledTasks, CountAsDoneWithoutAService) {
    const Machine machine;
    Machine::RemoveTaskService();
    ExpectRun(machine, {.startupTask = true});  // a missing one is not logged
    EXPECT_THAT(machine.Describe().tasks, IsEmpty());
}

TEST_F(ScheduledTasks, TakeAPathWithBlanksUnchanged) {
    const std::string directory = "C:\\A place  with\\many blanks in it";
    const Machine machine(directory);
    ExpectRun(machine);
    EXPECT_EQ(Machine::TaskDefinitions(), Definitions(directory));
    EXPECT_EQ(machine.Describe().tasks, ProductTasks());
}

// The path is put into the definition unescaped on purpose, so one with an & is not valid XML. Wine
// accepts it, without what follows the &.
TEST_F(ScheduledTasks, AreDefinedByInvalidXmlFromADirectoryWithAnAmpersand) {
    const std::string directory = "C:\\R & D";
    const Machine machine(directory);
    ExpectRun(machine);
    EXPECT_EQ(Machine::TaskDefinitions(), Definitions(directory));
}

}  // namespace
