#pragma once

#include "hw/feature_rule.h"
#include "registry/registry_setting.h"

#include <vector>

// The settings that the configure action deletes, and those that it writes, in this order.
extern const std::vector<RegistrySetting> DeleteList;
extern const std::vector<RegistrySetting> WriteList;

// The service's features by groups of hardware. No step reads this table; it is kept as the record
// of what they are.
extern const std::vector<FeatureRule> HardwareBitmaskGroups;
