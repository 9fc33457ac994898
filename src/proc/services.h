#pragma once

#include "proc/process_entry.h"

#include <span>

// Stop or start one entry and print its line. A service counts as stopped or started once it is in
// that state, within 30 s or 10 s; if it refuses, there is no wait. Return whether it got there;
// false, with nothing printed, for an entry that the step skips.
bool StopEntry(const ProcessEntry& entry);
bool StartEntry(const ProcessEntry& entry);

// The disable action: sets the start type of each service of the list (by default the product's) to
// disabled, one line each, and skips other entries. A running service keeps running. Always returns
// true.
bool DisableServices();
bool DisableServices(std::span<const ProcessEntry> entries);
