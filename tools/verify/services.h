#pragma once

#include "proc/process_entry.h"
#include "verify/row.h"

#include <span>

namespace verify {

// Whether each entry of the list is as the step of that name leaves it. Entries that the step skips
// have no row. Services are opened with query access only.

// Stopped: not running. What a later step starts is not asked for, nor is a service that is not
// installed running.
Rows CheckStopped(std::span<const ProcessEntry> entries,
                  std::span<const ProcessEntry> startedLater);

Rows CheckStarted(std::span<const ProcessEntry> entries);

Rows CheckDisabled(std::span<const ProcessEntry> entries);

}  // namespace verify
