#include "driver/actions.h"

#include "config/configure.h"
#include "config/service_parameters.h"
#include "driver/case_mapping.h"
#include "driver/console_log.h"
#include "driver/usage.h"
#include "proc/process_lists.h"
#include "proc/services.h"
#include "registry/registry_setting.h"
#include "shared/guarded.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace {

using Utils::Guarded;

constexpr std::uint32_t DefaultActions = 15;  // stop, configure, start and an unused bit

constexpr int StopBannerDashes = 24;
constexpr int StartBannerDashes = 22;

struct Option {
    std::wstring_view text;
    std::uint32_t actions;
};

constexpr Option Options[] = {
    {L"/STOP", ActionStop},
    {L"/CONFIGURE", ActionConfigure},
    {L"/START", ActionStart},
    {L"/DISABLE", ActionDisable},
};

void RunSteps(std::uint32_t actions) {
    if (actions & ActionStop) {
        Guarded([] { StopEntries(StopList); });
    }
    bool secured = true;
    if (actions & ActionConfigure) {
        // If it is cut short, it counts as failed.
        secured = false;
        Guarded([&] { secured = Configure(); });
    }
    if ((actions & ActionStart) && secured) {
        Guarded([] { StartEntries(StartList); });
    }
    if ((actions & ActionDisable) && secured) {
        Guarded([] { DisableServices(); });
    }
}

}  // namespace

void RunActions(int argumentCount, const wchar_t* const* arguments) {
    ConsolePrint("\r\nFIRST RUN - START\r\n\r\n");
    std::uint32_t actions = 0;  // do nothing rather than something not asked for
    Guarded([&] { actions = ChooseActions(argumentCount, arguments); });
    RunSteps(actions);
    ConsolePrint("\r\n\r\nFIRST RUN - FINISHED\r\n");
}

std::uint32_t ChooseActions(int argumentCount, const wchar_t* const* arguments) {
    const std::uint32_t registryActions = GetDwordWithDefault(
        HKEY_LOCAL_MACHINE, ServiceParametersKey, L"FinasetAction", DefaultActions);
    if (argumentCount < 2) {
        return registryActions;
    }
    std::wstring argument = arguments[1];
    ToUpperInPlace(argument);
    if (argument == L"/?") {
        PrintUsage(arguments[0]);
        return 0;
    }
    for (const Option& option : Options) {
        if (argument == option.text) {
            return option.actions;
        }
    }
    return registryActions;
}

void StopEntries(std::span<const ProcessEntry> entries) {
    PrintSectionBanner(StopBannerDashes, "Stopping Processes.....\r\n");
    for (const ProcessEntry& entry : entries) {
        Guarded([&] { StopEntry(entry); });
    }
}

void StartEntries(std::span<const ProcessEntry> entries) {
    PrintSectionBanner(StartBannerDashes, "Starting Processes.....\r\n");
    for (const ProcessEntry& entry : entries) {
        Guarded([&] { StartEntry(entry); });
    }
}
