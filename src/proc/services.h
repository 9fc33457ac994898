#pragma once

#include "proc/process_entry.h"

#include <span>

// Stop or start one entry and print its line. A service counts as stopped or started once it is in
// that state, for which it is given 30 s or 10 s; one that refuses is not waited for. Return
// whether that was reached; false, with nothing printed, for an entry that the step skips.
bool StopEntry(const ProcessEntry& entry);
bool StartEntry(const ProcessEntry& entry);

// The disable action: sets the start type of each service of the list (the product's, if none is
// given) to disabled, one line each, and skips whatever is no service. A running service runs on.
// Returns true whatever became of them.
bool DisableServices();
bool DisableServices(std::span<const ProcessEntry> entries);
