#include "tasks/task_table.h"

namespace {

// One line, without blanks between elements. The URI has none either, unlike the task's name.
constexpr wchar_t IdleTaskXml[] =
    LR"(<?xml version="1.0" encoding="UTF-16"?>)"
    LR"(<Task version="1.4" xmlns="http://schemas.microsoft.com/windows/2004/02/mit/task">)"
    LR"(<RegistrationInfo>)"
    LR"(<Author>Tarsel</Author><Description>VxIdle Task</Description><URI>\VxIdleTask</URI>)"
    LR"(</RegistrationInfo>)"
    LR"(<Triggers><IdleTrigger><Enabled>true</Enabled></IdleTrigger></Triggers>)"
    LR"(<Principals><Principal><GroupId>S-1-5-32-544</GroupId></Principal></Principals>)"
    LR"(<Settings>)"
    LR"(<Enabled>true</Enabled>)"
    LR"(<AllowStartOnDemand>true</AllowStartOnDemand>)"
    LR"(<AllowHardTerminate>true</AllowHardTerminate>)"
    LR"(<DisallowStartIfOnBatteries>false</DisallowStartIfOnBatteries>)"
    LR"(<StopIfGoingOnBatteries>false</StopIfGoingOnBatteries>)"
    LR"(</Settings>)"
    LR"(<Actions><Exec><Command>##PROCESSNAME##</Command></Exec></Actions>)"
    LR"(</Task>)";

}  // namespace

const std::vector<ScheduledTaskEntry> ScheduledTaskTable = {
    {
        .taskXml = IdleTaskXml,
        .resolveInOwnFolder = true,
        .processName = L"VxIdleTask.exe",
        .taskName = L"VxIdle Task",
    },
};
