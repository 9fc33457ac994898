#include "config/settings_tables.h"

#include "config/service_parameter_names.h"
#include "config/service_parameters.h"

#include <cstdint>

namespace {

const RegistrySetting NoSetting = {.type = REG_DWORD};

RegistrySetting Feature(const wchar_t* valueName, std::uint32_t number) {
    return {.root = HKEY_LOCAL_MACHINE,
            .keyPath = ServiceParametersKey,
            .valueName = valueName,
            .type = REG_DWORD,
            .number = number};
}

}  // namespace

const std::vector<RegistrySetting> DeleteList = {
    // So that the configuration files go to their default directory.
    {.root = HKEY_LOCAL_MACHINE,
     .keyPath = ServiceParametersKey,
     .valueName = ConfigurationFilesDirectoryName,
     .type = REG_SZ},
    // The whole key.
    {.root = HKEY_LOCAL_MACHINE, .keyPath = L"SOFTWARE\\Halvane\\SAP", .type = REG_SZ},
};

const std::vector<RegistrySetting> WriteList = {};  // empty on purpose

const std::vector<FeatureRule> HardwareBitmaskGroups = {
    {Feature(ServiceParameter::DomainEventsEnabled, 0), NoSetting, 0x03F400F0},
    {Feature(ServiceParameter::Run_APSuggestionService, 0), NoSetting, 0x03E00000},
    {NoSetting, Feature(ServiceParameter::MultiInterface_Enabled, 1), 0x02000000},
};
