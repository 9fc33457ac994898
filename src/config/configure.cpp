#include "config/configure.h"

#include "config/service_parameter_names.h"
#include "config/service_parameters.h"
#include "config/settings_tables.h"
#include "driver/console_log.h"
#include "fs/directory_security.h"
#include "fs/file_operations.h"
#include "fs/security_response.h"
#include "hw/adapter_bitmask.h"
#include "hw/features.h"
#include "tasks/scheduled_tasks.h"

#include <windows.h>

#include <string>

namespace {

constexpr int BannerDashes = 55;

// The outcome is not logged.
void ClearFirstRunMarker() {
    SetDwordSetting(HKEY_LOCAL_MACHINE, ServiceParametersKey, ServiceParameter::FirstRun, 0,
                    /*view32=*/false);
}

}  // namespace

bool Configure() {
    PrintSectionBanner(BannerDashes, "Setting Up Configuration Settings and Environment....\r\n");

    ConsolePrint("Delete Registry Settings.....\r\n");
    DeleteSettings(DeleteList);

    ConsolePrint("\r\nCopyFiles.....\r\n");
    RunFileOperations();

    ConsolePrint("\r\nSecureFilesDirectories.....\r\n");
    const bool secured = SecureDirectories();
    if (secured) {
        ConsolePrint("\r\nWrite Registry Settings.....\r\n");
        WriteSettings(WriteList);
        ConsolePrint("Computing Tarsel HW Bitmask\r\n");
        g_hardwareBitmask = ComputeHardwareBitmask(HardwareBitmaskGateName, HardwareBitmaskName);
        ConsolePrint("Enabling Features by Tarsel HW Bitmask\r\n");
        EnableFeaturesByBitmask();
        ConsolePrint("\r\nScheduling Tasks.....\r\n");
        ScheduleTasks();  // a task that is missing leaves no machine insecure
    } else {
        std::wstring reason =
            L"Security Vulnerability Securing Directories due to Failure Setting ACLs or Links "
            L"Detected";
        RespondToSecurityFailure(reason);
    }

    ClearFirstRunMarker();
    return secured;
}

void DeleteSettings(std::span<const RegistrySetting> settings) {
    for (const RegistrySetting& setting : settings) {
        ConsolePrint("Deleting Registry Setting %ls \t - \t", SettingDisplayText(setting).c_str());
        PrintVerdict(DeleteSetting(setting));
    }
}

void WriteSettings(std::span<const RegistrySetting> settings) {
    for (const RegistrySetting& setting : settings) {
        ConsolePrint("Writing Registry Setting %ls \t - \t", SettingDisplayText(setting).c_str());
        PrintVerdict(WriteSetting(setting));
    }
}
