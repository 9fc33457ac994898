#include "config/settings_tables.h"

#include "config/service_parameter_names.h"
#include "config/service_parameters.h"
#include "support/registry_contents.h"
#include "support/setting_records.h"

#include <windows.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>

namespace {

using test::Fields;
using test::ParametersKey;
using testing::IsEmpty;
using testing::SizeIs;

auto Row(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, std::uint32_t type,
         std::uint32_t number = 0) {
    return std::tuple(root, keyPath, valueName, false, type, number, std::wstring());
}

TEST(DeleteList, HoldsTheConfigurationFilesDirectoryAndAWholeKey) {
    ASSERT_THAT(DeleteList, SizeIs(2));
    EXPECT_EQ(Fields(DeleteList[0]),
              Row(HKEY_LOCAL_MACHINE, ParametersKey, L"ConfigFileDirectory", 1));
    EXPECT_EQ(Fields(DeleteList[1]), Row(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP", L"", 1));
}

TEST(DeleteList, IsShownWithTheMarkOfItsEmptyData) {
    ASSERT_THAT(DeleteList, SizeIs(2));
    EXPECT_EQ(SettingDisplayText(DeleteList[0]),
              L"HKEY_LOCAL_MACHINE\\" + ParametersKey + L"\\ConfigFileDirectory=");
    EXPECT_EQ(SettingDisplayText(DeleteList[1]), L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Halvane\\SAP\\=");
}

TEST(WriteList, IsEmpty) {
    EXPECT_THAT(WriteList, IsEmpty());
}

TEST(HardwareBitmaskGroups, SetOneFeatureEach) {
    const auto feature = [](const wchar_t* name, std::uint32_t number) {
        return Row(HKEY_LOCAL_MACHINE, ParametersKey, name, 4, number);
    };
    const auto none = Row(nullptr, L"", L"", 4);
    ASSERT_THAT(HardwareBitmaskGroups, SizeIs(3));
    EXPECT_EQ(Fields(HardwareBitmaskGroups[0].whenClear), feature(L"DomainEventsEnabled", 0));
    EXPECT_EQ(Fields(HardwareBitmaskGroups[0].whenSet), none);
    EXPECT_EQ(HardwareBitmaskGroups[0].mask, 0x03F400F0U);
    EXPECT_EQ(Fields(HardwareBitmaskGroups[1].whenClear), feature(L"Run_APSuggestionService", 0));
    EXPECT_EQ(Fields(HardwareBitmaskGroups[1].whenSet), none);
    EXPECT_EQ(HardwareBitmaskGroups[1].mask, 0x03E00000U);
    EXPECT_EQ(Fields(HardwareBitmaskGroups[2].whenClear), none);
    EXPECT_EQ(Fields(HardwareBitmaskGroups[2].whenSet), feature(L"MultiInterface_Enabled", 1));
    EXPECT_EQ(HardwareBitmaskGroups[2].mask, 0x02000000U);
}

TEST(FeatureRule, HoldsTheFirstSettingThenTheSecondThenTheMask) {
    const FeatureRule rule = {{.number = 1}, {.number = 2}, 3};
    EXPECT_EQ(rule.whenClear.number, 1U);
    EXPECT_EQ(rule.whenSet.number, 2U);
    EXPECT_EQ(rule.mask, 3U);
}

TEST(ServiceParameters, AreInTheServicesOwnKey) {
    EXPECT_EQ(ServiceParametersKey, ParametersKey);
}

TEST(ServiceParameters, NameTheDirectoriesAndTheirDefaults) {
    const std::pair<std::wstring, const wchar_t*> rows[] = {
        {ConfigurationFilesDirectoryName, L"ConfigFileDirectory"},
        {ConfigurationFilesDefaultDirectory, L"%programdata%\\Tarsel\\Nimbus\\ConfigurationFiles"},
        {ImageCacheDirectoryName, L"ImageCacheDirectory"},
        {ImageCacheDefaultDirectory, L"%programdata%\\Tarsel\\ImageCache"},
        {ActivityLogDirectoryName, L"ActivityLogDirectory"},
        {ActivityLogDefaultDirectory, L"%programdata%\\Tarsel\\Nimbus\\ActivityLog"},
        {ProductDataDirectory, L"%programdata%\\Tarsel\\Nimbus"},
        {DriverDirectory, L"%systemroot%\\system32\\drivers\\Tarsel\\ZEFIR"},
        // Once more, as constants of their own.
        {ServiceParameter::ConfigFileDirectoryDefault,
         L"%programdata%\\Tarsel\\Nimbus\\ConfigurationFiles"},
        {ServiceParameter::ImageCacheDirectoryDefault, L"%programdata%\\Tarsel\\ImageCache"},
        {ServiceParameter::ActivityLogDirectoryDefault,
         L"%programdata%\\Tarsel\\Nimbus\\ActivityLog"},
    };
    for (const auto& [constant, text] : rows) {
        EXPECT_EQ(constant, text);
    }
}

TEST(ServiceParameters, AreNamed) {
    using namespace ServiceParameter;  // NOLINT(google-build-using-namespace): that is the test
    const std::pair<std::wstring, const wchar_t*> rows[] = {
        {ActivityLogDirectory, L"ActivityLogDirectory"},
        {ImageCacheDirectory, L"ImageCacheDirectory"},
        {ConfigFileDirectory, L"ConfigFileDirectory"},
        {BaseProgramDataDirectory, L"BaseProgramDataDirectory"},
        {InstallConfigFileDirectory, L"InstallConfigFileDirectory"},
        {DynamicBandwidthMode, L"DynamicBandwidthMode"},
        {FirstRun, L"FirstRun"},
        {WirelessActivityPollInterval, L"WirelessActivityPollInterval"},
        {MultiInterface_Enabled, L"MultiInterface_Enabled"},
        {MultiInterfaceSmartRedirection_Enabled, L"MultiInterfaceSmartRedirection_Enabled"},
        {MultiInterfacePriorityMapping_Mode, L"MultiInterfacePriorityMapping_Mode"},
        {Run_Driver, L"Run_Driver"},
        {Run_APSuggestionService, L"Run_APSuggestionService"},
        {Run_HelperService, L"Run_HelperService"},
        {BandwidthControl_Enabled, L"BandwidthControl_Enabled"},
        {ActivityRules_Enabled, L"ActivityRules_Enabled"},
        {GroupBoost_EnabledState, L"GroupBoost_EnabledState"},
        {Run_SpeedTestOnNetworkConnect, L"Run_SpeedTestOnNetworkConnect"},
        {Network_BandwidthUp_Default, L"Network_BandwidthUp_Default"},
        {Network_BandwidthDown_Default, L"Network_BandwidthDown_Default"},
        {BandwidthUp_Min, L"BandwidthUp_Min"},
        {BandwidthUp_Max, L"BandwidthUp_Max"},
        {BandwidthUp_Default, L"BandwidthUp_Default"},
        {BandwidthDown_Min, L"BandwidthDown_Min"},
        {BandwidthDown_Max, L"BandwidthDown_Max"},
        {BandwidthDown_Default, L"BandwidthDown_Default"},
        {Priority_Min, L"Priority_Min"},
        {Priority_Max, L"Priority_Max"},
        {PollInterval, L"PollInterval"},
        {SecondsToForceWiFiScan, L"SecondsToForceWiFiScan"},
        {SecondsToForceImageDescriptionCacheUpdate, L"SecondsToForceImageDescriptionCacheUpdate"},
        {SecondsToForceProcessDomainsSave, L"SecondsToForceProcessDomainsSave"},
        {CurrentProfile, L"CurrentProfile"},
        {BoostedGroups_Services_Category_Gaming, L"BoostedGroups_Services_Category_Gaming"},
        {HelpBasePath, L"HelpBasePath"},
        {NotSet_Pinned, L"NotSet_Pinned"},
        {NotSet_HiddenInBasicMode, L"NotSet_HiddenInBasicMode"},
        {NotSet_Priority, L"NotSet_Priority"},
        {NotSet_BandwidthUp, L"NotSet_BandwidthUp"},
        {NotSet_BandwidthDown, L"NotSet_BandwidthDown"},
        {NotSet_IncludesDomainTraffic, L"NotSet_IncludesDomainTraffic"},
        {NotSet_LimitBandwidth_OnConnectionCount, L"NotSet_LimitBandwidth_OnConnectionCount"},
        {NotSet_MultiInterfaceCanSplitConnections, L"NotSet_MultiInterfaceCanSplitConnections"},
        {NotSet_MultiInterfaceSplittableConnections, L"NotSet_MultiInterfaceSplittableConnections"},
        {NotSet_MultiInterfaceMoveableConnections, L"NotSet_MultiInterfaceMoveableConnections"},
        {NotSet_MultiInterfaceSmartRedirection, L"NotSet_MultiInterfaceSmartRedirection"},
        {NotSet_MultiInterfaceExemptFromRedirection, L"NotSet_MultiInterfaceExemptFromRedirection"},
        {DomainEventsEnabled, L"DomainEventsEnabled"},
        {TimeoutMilliseconds_WaitServiceStart, L"TimeoutMilliseconds_WaitServiceStart"},
        {ThreadPool_ProcessDomainWork_Size, L"ThreadPool_ProcessDomainWork_Size"},
        {OnlyDomainsWithRulesHaveTraffic, L"OnlyDomainsWithRulesHaveTraffic"},
        {ConfigFileURLBasePath, L"ConfigFileURLBasePath"},
        {OEMConfigFileURLBasePath, L"OEMConfigFileURLBasePath"},
        {DownloadConfigFilesServiceStart, L"DownloadConfigFilesServiceStart"},
        {LastDownloadConfigFilesServiceStart, L"LastDownloadConfigFilesServiceStart"},
        {SecondsToRepeatDownloadConfigFilesServiceStart,
         L"SecondsToRepeatDownloadConfigFilesServiceStart"},
        {SleepSecondsBeforeDownloadConfigFilesServiceStart,
         L"SleepSecondsBeforeDownloadConfigFilesServiceStart"},
        {ShowUnclassifiedTraffic, L"ShowUnclassifiedTraffic"},
        {MaxConnectionCount_ToTriggerBandwidthLimit, L"MaxConnectionCount_ToTriggerBandwidthLimit"},
        {MaxConnectionCount_MaxPercentLimit, L"MaxConnectionCount_MaxPercentLimit"},
        {AutoSpeedTestRunMaxCountPerNetwork, L"AutoSpeedTestRunMaxCountPerNetwork"},
        {AutoSpeedTestNumServersToTry, L"AutoSpeedTestNumServersToTry"},
        {BandwidthUp_Floor_Test, L"BandwidthUp_Floor_Test"},
        {BandwidthUp_Floor_Value, L"BandwidthUp_Floor_Value"},
        {BandwidthUp_Ceiling_Test, L"BandwidthUp_Ceiling_Test"},
        {BandwidthUp_Ceiling_Value, L"BandwidthUp_Ceiling_Value"},
        {BandwidthDown_Floor_Test, L"BandwidthDown_Floor_Test"},
        {BandwidthDown_Floor_Value, L"BandwidthDown_Floor_Value"},
        {BandwidthDown_Ceiling_Test, L"BandwidthDown_Ceiling_Test"},
        {BandwidthDown_Ceiling_Value, L"BandwidthDown_Ceiling_Value"},
        {MaxDomainsToTrack, L"MaxDomainsToTrack"},
        {MultiInterface_RoutingType, L"MultiInterface_RoutingType"},
        {MultiInterface_Routing2TypeDefault, L"MultiInterface_Routing2TypeDefault"},
        {MultiInterface_Routing_UpdateInterval, L"MultiInterface_Routing_UpdateInterval"},
        {NetworkBandwidthPercentOfActualP1, L"NetworkBandwidthPercentOfActualP1"},
        {NetworkBandwidthPercentOfActualP2, L"NetworkBandwidthPercentOfActualP2"},
        {NetworkBandwidthPercentOfActualP3, L"NetworkBandwidthPercentOfActualP3"},
        {NetworkBandwidthPercentOfActualP4, L"NetworkBandwidthPercentOfActualP4"},
        {NetworkBandwidthPercentOfActualP5, L"NetworkBandwidthPercentOfActualP5"},
        {NetworkBandwidthPercentOfActualP6, L"NetworkBandwidthPercentOfActualP6"},
        {NetworkBandwidthPercentOfActual, L"NetworkBandwidthPercentOfActual"},
        {MaxDomainDescriptionStringLength, L"MaxDomainDescriptionStringLength"},
        {WifiRetryRateSuccessPercent, L"WifiRetryRateSuccessPercent"},
        {BSSChannelUtilizationSuccessPercent, L"BSSChannelUtilizationSuccessPercent"},
        {WifiPacketErrorRateSuccessPercent, L"WifiPacketErrorRateSuccessPercent"},
        {WifiSignalStrengthSuccess, L"WifiSignalStrengthSuccess"},
        {WifiSignalStrengthOpimal, L"WifiSignalStrengthOpimal"},
        {TimeoutMSServiceMonitoringThread, L"TimeoutMSServiceMonitoringThread"},
        {TimeoutMSRenameAdaptersThread, L"TimeoutMSRenameAdaptersThread"},
        {TotalAttemptTimeMSRenameAdaptersThread, L"TotalAttemptTimeMSRenameAdaptersThread"},
        {MinimumScoreForSplitting, L"MinimumScoreForSplitting"},
    };
    EXPECT_EQ(std::size(rows), 91U);
    for (const auto& [constant, text] : rows) {
        EXPECT_EQ(constant, text);
    }
}

}  // namespace
