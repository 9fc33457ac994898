#pragma once

#include "hw/feature_rule.h"
#include "registry/registry_setting.h"

#include <vector>

// The settings that the configure action deletes, and those that it writes, in order.
extern const std::vector<RegistrySetting> DeleteList;
extern const std::vector<RegistrySetting> WriteList;

// The service's features by hardware group. No step reads this table; it is kept as a record.
extern const std::vector<FeatureRule> HardwareBitmaskGroups;
