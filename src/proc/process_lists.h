#pragma once

#include "proc/process_entry.h"

#include <vector>

// What is stopped, started and disabled, in this order. The lists do not mirror one another on
// purpose.
extern const std::vector<ProcessEntry> StopList;
extern const std::vector<ProcessEntry> StartList;
extern const std::vector<ProcessEntry> DisableList;

// All services of the product. No step reads this list; it is kept as a record.
extern const std::vector<ProcessEntry> ProductServiceList;
