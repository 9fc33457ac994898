#pragma once

// The names of the values in the Parameters key of the product's service: the service's own
// settings. No step reads or writes any but FirstRun and those that the tables name.
namespace ServiceParameter {

inline constexpr wchar_t ActivityLogDirectory[] = L"ActivityLogDirectory";
inline constexpr wchar_t ImageCacheDirectory[] = L"ImageCacheDirectory";
inline constexpr wchar_t ConfigFileDirectory[] = L"ConfigFileDirectory";
inline constexpr wchar_t BaseProgramDataDirectory[] = L"BaseProgramDataDirectory";
inline constexpr wchar_t InstallConfigFileDirectory[] = L"InstallConfigFileDirectory";
inline constexpr wchar_t DynamicBandwidthMode[] = L"DynamicBandwidthMode";
inline constexpr wchar_t FirstRun[] = L"FirstRun";
inline constexpr wchar_t WirelessActivityPollInterval[] = L"WirelessActivityPollInterval";
inline constexpr wchar_t MultiInterface_Enabled[] = L"MultiInterface_Enabled";
inline constexpr wchar_t MultiInterfaceSmartRedirection_Enabled[] =
    L"MultiInterfaceSmartRedirection_Enabled";
inline constexpr wchar_t MultiInterfacePriorityMapping_Mode[] =
    L"MultiInterfacePriorityMapping_Mode";
inline constexpr wchar_t Run_Driver[] = L"Run_Driver";
inline constexpr wchar_t Run_APSuggestionService[] = L"Run_APSuggestionService";
inline constexpr wchar_t Run_HelperService[] = L"Run_HelperService";
inline constexpr wchar_t BandwidthControl_Enabled[] = L"BandwidthControl_Enabled";
inline constexpr wchar_t ActivityRules_Enabled[] = L"ActivityRules_Enabled";
inline constexpr wchar_t GroupBoost_EnabledState[] = L"GroupBoost_EnabledState";
inline constexpr wchar_t Run_SpeedTestOnNetworkConnect[] = L"Run_SpeedTestOnNetworkConnect";
inline constexpr wchar_t Network_BandwidthUp_Default[] = L"Network_BandwidthUp_Default";
inline constexpr wchar_t Network_BandwidthDown_Default[] = L"Network_BandwidthDown_Default";
inline constexpr wchar_t BandwidthUp_Min[] = L"BandwidthUp_Min";
inline constexpr wchar_t BandwidthUp_Max[] = L"BandwidthUp_Max";
inline constexpr wchar_t BandwidthUp_Default[] = L"BandwidthUp_Default";
inline constexpr wchar_t BandwidthDown_Min[] = L"BandwidthDown_Min";
inline constexpr wchar_t BandwidthDown_Max[] = L"BandwidthDown_Max";
inline constexpr wchar_t BandwidthDown_Default[] = L"BandwidthDown_Default";
inline constexpr wchar_t Priority_Min[] = L"Priority_Min";
inline constexpr wchar_t Priority_Max[] = L"Priority_Max";
inline constexpr wchar_t PollInterval[] = L"PollInterval";
inline constexpr wchar_t SecondsToForceWiFiScan[] = L"SecondsToForceWiFiScan";
inline constexpr wchar_t SecondsToForceImageDescriptionCacheUpdate[] =
    L"SecondsToForceImageDescriptionCacheUpdate";
inline constexpr wchar_t SecondsToForceProcessDomainsSave[] = L"SecondsToForceProcessDomainsSave";
inline constexpr wchar_t CurrentProfile[] = L"CurrentProfile";
inline constexpr wchar_t BoostedGroups_Services_Category_Gaming[] =
    L"BoostedGroups_Services_Category_Gaming";
inline constexpr wchar_t HelpBasePath[] = L"HelpBasePath";
inline constexpr wchar_t NotSet_Pinned[] = L"NotSet_Pinned";
inline constexpr wchar_t NotSet_HiddenInBasicMode[] = L"NotSet_HiddenInBasicMode";
inline constexpr wchar_t NotSet_Priority[] = L"NotSet_Priority";
inline constexpr wchar_t NotSet_BandwidthUp[] = L"NotSet_BandwidthUp";
inline constexpr wchar_t NotSet_BandwidthDown[] = L"NotSet_BandwidthDown";
inline constexpr wchar_t NotSet_IncludesDomainTraffic[] = L"NotSet_IncludesDomainTraffic";
inline constexpr wchar_t NotSet_LimitBandwidth_OnConnectionCount[] =
    L"NotSet_LimitBandwidth_OnConnectionCount";
inline constexpr wchar_t NotSet_MultiInterfaceCanSplitConnections[] =
    L"NotSet_MultiInterfaceCanSplitConnections";
inline constexpr wchar_t NotSet_MultiInterfaceSplittableConnections[] =
    L"NotSet_MultiInterfaceSplittableConnections";
inline constexpr wchar_t NotSet_MultiInterfaceMoveableConnections[] =
    L"NotSet_MultiInterfaceMoveableConnections";
inline constexpr wchar_t NotSet_MultiInterfaceSmartRedirection[] =
    L"NotSet_MultiInterfaceSmartRedirection";
inline constexpr wchar_t NotSet_MultiInterfaceExemptFromRedirection[] =
    L"NotSet_MultiInterfaceExemptFromRedirection";
inline constexpr wchar_t DomainEventsEnabled[] = L"DomainEventsEnabled";
inline constexpr wchar_t TimeoutMilliseconds_WaitServiceStart[] =
    L"TimeoutMilliseconds_WaitServiceStart";
inline constexpr wchar_t ThreadPool_ProcessDomainWork_Size[] = L"ThreadPool_ProcessDomainWork_Size";
inline constexpr wchar_t OnlyDomainsWithRulesHaveTraffic[] = L"OnlyDomainsWithRulesHaveTraffic";
inline constexpr wchar_t ConfigFileURLBasePath[] = L"ConfigFileURLBasePath";
inline constexpr wchar_t OEMConfigFileURLBasePath[] = L"OEMConfigFileURLBasePath";
inline constexpr wchar_t DownloadConfigFilesServiceStart[] = L"DownloadConfigFilesServiceStart";
inline constexpr wchar_t LastDownloadConfigFilesServiceStart[] =
    L"LastDownloadConfigFilesServiceStart";
inline constexpr wchar_t SecondsToRepeatDownloadConfigFilesServiceStart[] =
    L"SecondsToRepeatDownloadConfigFilesServiceStart";
inline constexpr wchar_t SleepSecondsBeforeDownloadConfigFilesServiceStart[] =
    L"SleepSecondsBeforeDownloadConfigFilesServiceStart";
inline constexpr wchar_t ShowUnclassifiedTraffic[] = L"ShowUnclassifiedTraffic";
inline constexpr wchar_t MaxConnectionCount_ToTriggerBandwidthLimit[] =
    L"MaxConnectionCount_ToTriggerBandwidthLimit";
inline constexpr wchar_t MaxConnectionCount_MaxPercentLimit[] =
    L"MaxConnectionCount_MaxPercentLimit";
inline constexpr wchar_t AutoSpeedTestRunMaxCountPerNetwork[] =
    L"AutoSpeedTestRunMaxCountPerNetwork";
inline constexpr wchar_t AutoSpeedTestNumServersToTry[] = L"AutoSpeedTestNumServersToTry";
inline constexpr wchar_t BandwidthUp_Floor_Test[] = L"BandwidthUp_Floor_Test";
inline constexpr wchar_t BandwidthUp_Floor_Value[] = L"BandwidthUp_Floor_Value";
inline constexpr wchar_t BandwidthUp_Ceiling_Test[] = L"BandwidthUp_Ceiling_Test";
inline constexpr wchar_t BandwidthUp_Ceiling_Value[] = L"BandwidthUp_Ceiling_Value";
inline constexpr wchar_t BandwidthDown_Floor_Test[] = L"BandwidthDown_Floor_Test";
inline constexpr wchar_t BandwidthDown_Floor_Value[] = L"BandwidthDown_Floor_Value";
inline constexpr wchar_t BandwidthDown_Ceiling_Test[] = L"BandwidthDown_Ceiling_Test";
inline constexpr wchar_t BandwidthDown_Ceiling_Value[] = L"BandwidthDown_Ceiling_Value";
inline constexpr wchar_t MaxDomainsToTrack[] = L"MaxDomainsToTrack";
inline constexpr wchar_t MultiInterface_RoutingType[] = L"MultiInterface_RoutingType";
inline constexpr wchar_t MultiInterface_Routing2TypeDefault[] =
    L"MultiInterface_Routing2TypeDefault";
inline constexpr wchar_t MultiInterface_Routing_UpdateInterval[] =
    L"MultiInterface_Routing_UpdateInterval";
inline constexpr wchar_t NetworkBandwidthPercentOfActualP1[] = L"NetworkBandwidthPercentOfActualP1";
inline constexpr wchar_t NetworkBandwidthPercentOfActualP2[] = L"NetworkBandwidthPercentOfActualP2";
inline constexpr wchar_t NetworkBandwidthPercentOfActualP3[] = L"NetworkBandwidthPercentOfActualP3";
inline constexpr wchar_t NetworkBandwidthPercentOfActualP4[] = L"NetworkBandwidthPercentOfActualP4";
inline constexpr wchar_t NetworkBandwidthPercentOfActualP5[] = L"NetworkBandwidthPercentOfActualP5";
inline constexpr wchar_t NetworkBandwidthPercentOfActualP6[] = L"NetworkBandwidthPercentOfActualP6";
inline constexpr wchar_t NetworkBandwidthPercentOfActual[] = L"NetworkBandwidthPercentOfActual";
inline constexpr wchar_t MaxDomainDescriptionStringLength[] = L"MaxDomainDescriptionStringLength";
inline constexpr wchar_t WifiRetryRateSuccessPercent[] = L"WifiRetryRateSuccessPercent";
inline constexpr wchar_t BSSChannelUtilizationSuccessPercent[] =
    L"BSSChannelUtilizationSuccessPercent";
inline constexpr wchar_t WifiPacketErrorRateSuccessPercent[] = L"WifiPacketErrorRateSuccessPercent";
inline constexpr wchar_t WifiSignalStrengthSuccess[] = L"WifiSignalStrengthSuccess";
inline constexpr wchar_t WifiSignalStrengthOpimal[] = L"WifiSignalStrengthOpimal";
inline constexpr wchar_t TimeoutMSServiceMonitoringThread[] = L"TimeoutMSServiceMonitoringThread";
inline constexpr wchar_t TimeoutMSRenameAdaptersThread[] = L"TimeoutMSRenameAdaptersThread";
inline constexpr wchar_t TotalAttemptTimeMSRenameAdaptersThread[] =
    L"TotalAttemptTimeMSRenameAdaptersThread";
inline constexpr wchar_t MinimumScoreForSplitting[] = L"MinimumScoreForSplitting";

// The service's directories have their names and defaults a second time, apart from those that the
// path resolvers use, on purpose.
inline constexpr wchar_t ActivityLogDirectoryDefault[] =
    L"%programdata%\\Tarsel\\Nimbus\\ActivityLog";
inline constexpr wchar_t ImageCacheDirectoryDefault[] = L"%programdata%\\Tarsel\\ImageCache";
inline constexpr wchar_t ConfigFileDirectoryDefault[] =
    L"%programdata%\\Tarsel\\Nimbus\\ConfigurationFiles";

}  // namespace ServiceParameter
