#include "tasks/task_table.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(ScheduledTaskTable, HoldsTheIdleTaskAlone) {
    ASSERT_EQ(ScheduledTaskTable.size(), 1U);
    const ScheduledTaskEntry& task = ScheduledTaskTable.front();
    EXPECT_TRUE(task.resolveInOwnFolder);
    EXPECT_EQ(task.processName, L"VxIdleTask.exe");
    EXPECT_EQ(task.taskName, L"VxIdle Task");
}

TEST(ScheduledTaskTable, DefinesTheIdleTaskInOneLineWithoutBlanksBetweenElements) {
    EXPECT_EQ(
        ScheduledTaskTable.front().taskXml,
        L"<?xml version=\"1.0\" encoding=\"UTF-16\"?><Task version=\"1.4\" "
        L"xmlns=\"http://schemas.microsoft.com/windows/2004/02/mit/"
        L"task\"><RegistrationInfo><Author>"
        L"Tarsel</Author><Description>VxIdle Task</Description><URI>\\VxIdleTask</URI>"
        L"</RegistrationInfo><Triggers><IdleTrigger><Enabled>true</Enabled></IdleTrigger></"
        L"Triggers>"
        L"<Principals><Principal><GroupId>S-1-5-32-544</GroupId></Principal></Principals><Settings>"
        L"<Enabled>true</Enabled><AllowStartOnDemand>true</AllowStartOnDemand><AllowHardTerminate>"
        L"true</AllowHardTerminate><DisallowStartIfOnBatteries>false</DisallowStartIfOnBatteries>"
        L"<StopIfGoingOnBatteries>false</StopIfGoingOnBatteries></Settings><Actions><Exec><Command>"
        L"##PROCESSNAME##</Command></Exec></Actions></Task>");
}

}  // namespace
