#pragma once

#include "hw/adapter_patterns.h"
#include "hw/feature_rule.h"
#include "registry/registry_setting.h"
#include "verify/row.h"

#include <span>
#include <string>

namespace verify {

// Whether each setting is absent: the value, or the key if the record names no value.
Rows CheckDeleted(std::span<const RegistrySetting> settings);

// Whether each setting is as a run would write it. One that cannot be written has no row.
Rows CheckWritten(std::span<const RegistrySetting> settings);

// Whether the stored bitmask is the one that the gate value of the service parameters key, or
// otherwise the present adapters, give now.
Rows CheckBitmask(const std::wstring& gateValueName, const std::wstring& resultValueName,
                  std::span<const AdapterPattern> patterns);

// Whether the features are as the stored bitmask requires.
Rows CheckFeatures(std::span<const FeatureRule> rules, const std::wstring& resultValueName);

}  // namespace verify
