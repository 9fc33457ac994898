#pragma once

#include <span>
#include <string>

// One task for the Task Scheduler, to be registered in its root folder.
struct ScheduledTaskEntry {
    std::wstring taskXml;             // the definition, with ##PROCESSNAME## for the program's path
    bool resolveInOwnFolder = false;  // whether the program is beside this one
    std::wstring processName;
    std::wstring taskName;
};

// Registers the product's tasks, and removes the one that older installations left. Returns the
// result of the last registration, true if there was none.
bool ScheduleTasks();

// The same for other tasks.
bool ScheduleTasks(std::span<const ScheduledTaskEntry> tasks);

// Both need COM on this thread, and log the outcome. Where the task service object cannot be
// created at all, both count as done on purpose: such a machine runs no tasks.

// Registers or replaces one task. `processPath` is for the log. Returns whether it is registered.
bool CreateScheduledTask(const std::wstring& taskName, const std::wstring& taskXml,
                         const std::wstring& processPath);

// Removes one task. If there is none, that counts as success.
void DeleteScheduledTask(const std::wstring& taskName);
