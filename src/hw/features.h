#pragma once

#include "hw/feature_rule.h"

#include <span>

// Writes, for each rule of the table (the product's, if none is given), the setting that goes with
// the hardware bitmask, and logs it. One that cannot be written is passed over in silence.
void EnableFeaturesByBitmask();
void EnableFeaturesByBitmask(std::span<const FeatureRule> rules);
