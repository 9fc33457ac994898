// Whole runs against a real task service.

#include "machine/expected_log.h"
#include "machine/machine.h"
#include "support/file_contents.h"

#include <windows.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace test;  // the expected log
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr wchar_t IdleTask[] = L"VxIdle Task";
constexpr wchar_t StartupTask[] = L"Tarsel Lumetra Startup Task";

// The definition of the idle task for a program in this place.
std::string IdleTaskXml(const std::string& program) {
    return R"(<?xml version="1.0" encoding="UTF-16"?><Task version="1.4" )"
           R"(xmlns="http://schemas.microsoft.com/windows/2004/02/mit/task"><RegistrationInfo>)"
           R"(<Author>Tarsel</Author><Description>VxIdle Task</Description>)"
           R"(<URI>\VxIdleTask</URI></RegistrationInfo><Triggers><IdleTrigger>)"
           R"(<Enabled>true</Enabled></IdleTrigger></Triggers><Principals><Principal>)"
           R"(<GroupId>S-1-5-32-544</GroupId></Principal></Principals><Settings>)"
           R"(<Enabled>true</Enabled><AllowStartOnDemand>true</AllowStartOnDemand>)"
           R"(<AllowHardTerminate>true</AllowHardTerminate>)"
           R"(<DisallowStartIfOnBatteries>false</DisallowStartIfOnBatteries>)"
           R"(<StopIfGoingOnBatteries>false</StopIfGoingOnBatteries></Settings><Actions><Exec>)"
           "<Command>" +
           program + "</Command></Exec></Actions></Task>";
}

const std::string ProductDirectory = "C:\\Program Files\\Tarsel\\Lumetra";

// A configure action on a machine that has nothing of the product but this program.
std::string LogOf(const TasksOf& tasks) {
    return WholeLog(DeletedSettings(false) + FilesOfNoInstallation + SecuredDirectories(true) +
                    SettingsAndHardware() + ScheduledTasks(tasks));
}

// What the task service keeps of a task.
std::string Stored(const wchar_t* task) {
    return FileText(std::filesystem::path(L"C:\\windows\\system32\\tasks") / task).value();
}

// The line of a COM error that both routines run into.
std::string ErrorIn(const std::string& routine, const std::string& error) {
    return "     ====> " + routine + ":[_com_error] Exception " + error + "\n";
}

TEST(ScheduledTasks, AreRegisteredWithTheProgramsPath) {
    const Machine machine;
    EXPECT_EQ(machine.Run(L"/CONFIGURE").log, LogOf({}));
    EXPECT_THAT(machine.Describe().tasks, ElementsAre(IdleTask));
    EXPECT_THAT(Machine::TaskDefinitions(),
                ElementsAre(IdleTaskXml(ProductDirectory + "\\VxIdleTask.exe")));
    EXPECT_THAT(Stored(IdleTask),
                AllOf(HasSubstr("<Author>Tarsel</Author>"), HasSubstr("<URI>\\VxIdleTask</URI>")));
}

TEST(ScheduledTasks, AreReplacedByALaterRun) {
    const Machine machine;
    Machine::ScheduleTask(IdleTask);
    EXPECT_EQ(machine.Run(L"/CONFIGURE").log, LogOf({}));
    const std::string stored = Stored(IdleTask);
    EXPECT_THAT(stored, HasSubstr("<URI>\\VxIdleTask</URI>"));
    EXPECT_EQ(machine.Run(L"/CONFIGURE").exitCode, 0U);
    EXPECT_THAT(machine.Describe().tasks, ElementsAre(IdleTask));
    EXPECT_EQ(Stored(IdleTask), stored);
    EXPECT_EQ(Machine::TaskDefinitions().size(), 2U);
}

TEST(ScheduledTasks, LoseTheObsoleteOneAndNoOther) {
    const Machine machine;
    Machine::ScheduleTask(StartupTask);
    Machine::ScheduleTask(L"Tarsel Lumetra Startup Task 2");
    EXPECT_EQ(machine.Run(L"/CONFIGURE").log, LogOf({.deletionError = ""}));
    EXPECT_THAT(machine.Describe().tasks, ElementsAre(L"Tarsel Lumetra Startup Task 2", IdleTask));
}

TEST(ScheduledTasks, AreDoneWithoutWhereTheServiceCannotBeReached) {
    Machine machine;
    machine.InstallProduct();
    const Utils::KernelHandle application = machine.StartProduct();
    Machine::DisconnectTaskService();
    const std::string error = "0x80070035, (null), Bad network path.";
    EXPECT_EQ(
        machine.Run().log,
        WholeLog(StopSection(AskedToQuit + AllServicesStopped) + DeletedSettings(true) +
                 FilesOfAFirstInstallation + SecuredDirectories(true) + SettingsAndHardware() +
                 ScheduledTasks({.creationError = ErrorIn("CreateScheduledTask", error),
                                 .deletionError = ErrorIn("DeleteScheduledTask", error),
                                 .deletionFails = true}) +
                 StartSection(AllStarted)));
    EXPECT_THAT(machine.Describe().tasks, IsEmpty());
}

TEST(ScheduledTasks, CountAsDoneWhereThereIsNoService) {
    const Machine machine;
    Machine::RemoveTaskService();
    EXPECT_EQ(machine.Run(L"/CONFIGURE").log, LogOf({.deletionError = ""}));
    EXPECT_THAT(machine.Describe().tasks, IsEmpty());
}

TEST(ScheduledTasks, TakeAPathWithBlanksAsItStands) {
    const std::string directory = "C:\\A place  with\\many blanks in it";
    const Machine machine(directory);
    EXPECT_EQ(machine.Run(L"/CONFIGURE").log, LogOf({.directory = directory}));
    EXPECT_THAT(Machine::TaskDefinitions(),
                ElementsAre(IdleTaskXml(directory + "\\VxIdleTask.exe")));
    EXPECT_THAT(machine.Describe().tasks, ElementsAre(IdleTask));
}

// The path is put into the definition as text, so one with an & makes it no XML any more. Wine
// takes it all the same, without what stands behind the &.
TEST(ScheduledTasks, AreDefinedByInvalidXmlFromADirectoryWithAnAmpersand) {
    const std::string directory = "C:\\R & D";
    const Machine machine(directory);
    EXPECT_EQ(machine.Run(L"/CONFIGURE").log, LogOf({.directory = directory}));
    EXPECT_THAT(Machine::TaskDefinitions(), ElementsAre(IdleTaskXml("C:\\R & D\\VxIdleTask.exe")));
}

}  // namespace
