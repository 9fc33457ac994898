#include "hw/feature_table.h"

#include "config/service_parameter_names.h"
#include "config/service_parameters.h"

const std::vector<FeatureRule> FeatureRuleTable = {
    {.whenClear = {.type = REG_DWORD},  // leaves the feature as it was
     .whenSet = {.root = HKEY_LOCAL_MACHINE,
                 .keyPath = ServiceParametersKey,
                 .valueName = ServiceParameter::MultiInterface_Enabled,
                 .type = REG_DWORD,
                 .number = 1},
     .mask = 0x00000002},
};
