#include "tasks/task_table.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <iterator>

namespace {

// In one line, without blanks between elements.
constexpr wchar_t IdleTaskXml[] =
    L"<?xml version=\"1.0\" encoding=\"UTF-16\"?><Task version=\"1.4\" "
    L"xmlns=\"http://schemas.microsoft.com/windows/2004/02/mit/task\"><RegistrationInfo><Author>"
    L"Tarsel</Author><Description>VxIdle Task</Description><URI>\\VxIdleTask</URI>"
    L"</RegistrationInfo><Triggers><IdleTrigger><Enabled>true</Enabled></IdleTrigger></Triggers>"
    L"<Principals><Principal><GroupId>S-1-5-32-544</GroupId></Principal></Principals><Settings>"
    L"<Enabled>true</Enabled><AllowStartOnDemand>true</AllowStartOnDemand><AllowHardTerminate>"
    L"true</AllowHardTerminate><DisallowStartIfOnBatteries>false</DisallowStartIfOnBatteries>"
    L"<StopIfGoingOnBatteries>false</StopIfGoingOnBatteries></Settings><Actions><Exec><Command>"
    L"##PROCESSNAME##</Command></Exec></Actions></Task>";

TEST(ScheduledTaskTable, HoldsTheTasks) {
    const struct {
        const wchar_t* xml;
        bool resolveInOwnFolder;
        const wchar_t* processName;
        const wchar_t* taskName;
    } rows[] = {{IdleTaskXml, true, L"VxIdleTask.exe", L"VxIdle Task"}};
    ASSERT_EQ(ScheduledTaskTable.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(ScheduledTaskTable[i].taskXml, rows[i].xml);
        EXPECT_EQ(ScheduledTaskTable[i].resolveInOwnFolder, rows[i].resolveInOwnFolder);
        EXPECT_EQ(ScheduledTaskTable[i].processName, rows[i].processName);
        EXPECT_EQ(ScheduledTaskTable[i].taskName, rows[i].taskName);
    }
}

}  // namespace
