#pragma once

#include "hw/feature_rule.h"

#include <span>

// For each rule of the table (by default the product's), writes the setting that the hardware
// bitmask selects, and logs it. A failed write is not logged.
void EnableFeaturesByBitmask();
void EnableFeaturesByBitmask(std::span<const FeatureRule> rules);
