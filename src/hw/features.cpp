#include "hw/features.h"

#include "driver/console_log.h"
#include "hw/adapter_bitmask.h"
#include "hw/feature_table.h"

#include <cstdint>

void EnableFeaturesByBitmask() {
    EnableFeaturesByBitmask(FeatureRuleTable);
}

void EnableFeaturesByBitmask(std::span<const FeatureRule> rules) {
    const std::uint32_t bitmask = g_hardwareBitmask;
    for (const FeatureRule& rule : rules) {
        const RegistrySetting& setting = (rule.mask & bitmask) != 0 ? rule.whenSet : rule.whenClear;
        if (WriteSetting(setting)) {
            ConsolePrint("Writing Registry Setting %ls\r\n", SettingDisplayText(setting).c_str());
        }
    }
}
