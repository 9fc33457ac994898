#pragma once

#include "registry/registry_setting.h"

#include <cstdint>

// Two settings, one for each state of a hardware bitmask: the first if it has no bit of the mask,
// else the second. A null root means no setting.
struct FeatureRule {
    RegistrySetting whenClear;
    RegistrySetting whenSet;
    std::uint32_t mask = 0;
};
