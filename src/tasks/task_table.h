#pragma once

#include "tasks/scheduled_tasks.h"

#include <vector>

// The product's scheduled tasks, in the order in which they are registered.
extern const std::vector<ScheduledTaskEntry> ScheduledTaskTable;
