#pragma once

// The product's one configuration key, under HKEY_LOCAL_MACHINE, and the directories that its
// values override, with their defaults. Environment variables have the form %name%.

inline constexpr wchar_t ServiceParametersKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network Service\\Parameters";

inline constexpr wchar_t ConfigurationFilesDirectoryName[] = L"ConfigFileDirectory";
inline constexpr wchar_t ConfigurationFilesDefaultDirectory[] =
    L"%programdata%\\Tarsel\\Nimbus\\ConfigurationFiles";

inline constexpr wchar_t ImageCacheDirectoryName[] = L"ImageCacheDirectory";
inline constexpr wchar_t ImageCacheDefaultDirectory[] = L"%programdata%\\Tarsel\\ImageCache";

inline constexpr wchar_t ActivityLogDirectoryName[] = L"ActivityLogDirectory";
inline constexpr wchar_t ActivityLogDefaultDirectory[] =
    L"%programdata%\\Tarsel\\Nimbus\\ActivityLog";

// The value used as the hardware bitmask if it exists and is not 1, and where the bitmask is kept.
inline constexpr wchar_t HardwareBitmaskGateName[] = L"Tarsel_HWConfigDefault";
inline constexpr wchar_t HardwareBitmaskKey[] = L"SOFTWARE\\Tarsel\\Nimbus";
inline constexpr wchar_t HardwareBitmaskName[] = L"Tarsel_HWConfig";

// Directories that no setting overrides.
inline constexpr wchar_t ProductDataDirectory[] = L"%programdata%\\Tarsel\\Nimbus";
inline constexpr wchar_t DriverDirectory[] = L"%systemroot%\\system32\\drivers\\Tarsel\\ZEFIR";
