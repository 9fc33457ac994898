#pragma once

#include "proc/process_entry.h"

#include <vector>

// What is stopped, started and disabled, in this order. The orders are deliberate, and the lists do
// not mirror one another.
extern const std::vector<ProcessEntry> StopList;
extern const std::vector<ProcessEntry> StartList;
extern const std::vector<ProcessEntry> DisableList;

// All services of the product. No step reads this list; it is kept as the record of what they are.
extern const std::vector<ProcessEntry> ProductServiceList;
