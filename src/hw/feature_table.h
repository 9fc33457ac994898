#pragma once

#include "hw/feature_rule.h"

#include <vector>

// The features that go with the adapters of HardwarePatternTable.
extern const std::vector<FeatureRule> FeatureRuleTable;
