#pragma once

#include "registry/registry_setting.h"

#include <cstdint>

// Which of two settings goes with a hardware bitmask: the first if it has no bit of the mask, else
// the second. A setting with a null root stands for none.
struct FeatureRule {
    RegistrySetting whenClear;
    RegistrySetting whenSet;
    std::uint32_t mask = 0;
};
