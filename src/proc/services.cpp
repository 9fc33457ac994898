#include "proc/services.h"

#include "driver/console_log.h"
#include "proc/applications.h"
#include "proc/process_lists.h"
#include "proc/scm.h"
#include "shared/guarded.h"

#include <windows.h>

#include <string>

namespace {

constexpr int DisableBannerDashes = 24;

// How to bring a service into another state, and the texts of its line.
struct Transition {
    const char* item;
    bool (Utils::SCM::*request)(const std::wstring& name) const;
    DWORD target;
    DWORD timeoutMs;
    const char* done;
    const char* failed;
};

constexpr Transition Stop = {"Stopping %ls....", &Utils::SCM::RequestStop, SERVICE_STOPPED, 30'000,
                             "stopped\r\n",      "stop failed!\r\n"};
constexpr Transition Start = {"Starting %ls....", &Utils::SCM::RequestStart,
                              SERVICE_RUNNING,    10'000,
                              "started\r\n",      "start failed!\r\n"};

bool MoveService(const std::wstring& name, const Transition& to) {
    ConsolePrint(to.item, name.c_str());
    // The request and the wait each have a connection; the first is closed before the second opens.
    bool reached = (Utils::SCM().*to.request)(name);
    if (reached) {
        reached = Utils::SCM().WaitForState(name, to.target, /*reserved=*/0, to.timeoutMs);
    }
    ConsolePrint("%s", reached ? to.done : to.failed);
    return reached;
}

}  // namespace

bool StopEntry(const ProcessEntry& entry) {
    if (entry.name.empty()) {
        return false;
    }
    switch (entry.kind) {
        case EntryKind::Service:
            return MoveService(entry.name, Stop);
        case EntryKind::QuitApp:
            return StopApplication(entry.name, entry.extra);
        default:
            return false;
    }
}

bool StartEntry(const ProcessEntry& entry) {
    if (entry.name.empty()) {
        return false;
    }
    switch (entry.kind) {
        case EntryKind::Service:
            return MoveService(entry.name, Start);
        case EntryKind::LaunchApp:
            return StartApplication(entry.name, entry.extra);
        default:
            return false;
    }
}

bool DisableServices() {
    return DisableServices(DisableList);
}

bool DisableServices(std::span<const ProcessEntry> entries) {
    PrintSectionBanner(DisableBannerDashes, "Disabling Processes....\r\n");
    for (const ProcessEntry& entry : entries) {
        if (entry.name.empty() || entry.kind != EntryKind::Service) {
            continue;
        }
        Utils::Guarded([&] {
            ConsolePrint("Disabling Service %ls....", entry.name.c_str());
            const bool disabled = Utils::SCM().SetDisabled(entry.name);
            ConsolePrint("%s",
                         disabled ? "Disabled\r\n" : "Disable  failed!\r\n");  // on purpose
        });
    }
    return true;
}
