#pragma once

#include "tasks/scheduled_tasks.h"
#include "verify/row.h"

#include <span>
#include <string>

namespace verify {

// Whether each task is registered for its group, with its command from this program's own
// directory, and whether the obsolete one is absent. Needs COM on this thread.
Rows CheckTasks(std::span<const ScheduledTaskEntry> tasks, const std::wstring& obsoleteTask);

}  // namespace verify
