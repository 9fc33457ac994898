#pragma once

#include <span>
#include <string>
#include <string_view>

// In a task's definition, stands for its program's path.
inline constexpr std::wstring_view ProcessPlaceholder = L"##PROCESSNAME##";

// The task that older installations left. Allocated before the run: it is deleted even when memory
// runs out.
extern const std::wstring ObsoleteTask;

// One task for the Task Scheduler, to be registered in its root folder.
struct ScheduledTaskEntry {
    std::wstring taskXml;  // the definition, with ProcessPlaceholder for the program's path
    bool resolveInOwnFolder = false;  // whether the program is beside this one
    std::wstring processName;
    std::wstring taskName;
};

// The path of the program that the task runs.
std::wstring ProcessPathOf(const ScheduledTaskEntry& task);

// Registers the product's tasks, and removes the obsolete one. Returns the result of the last
// registration, true if there was none.
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
