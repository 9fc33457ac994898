#pragma once

#include "support/call_log.h"
#include "support/import_hook.h"
#include "support/virtual_clock.h"

#include <windows.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

// Replaces the service manager: answers as configured and records each call with its arguments.
// Managers and services are numbered in the order in which they are opened. Sleeps are recorded
// too, and take no time. A test fails if it leaves one of its handles open.
class FakeServices {
public:
    bool connects = true;
    bool opens = true;
    bool accepts = true;  // any request: start, stop, change
    // The state that each poll shows in turn; none if it fails. The last one stays.
    std::vector<std::optional<DWORD>> states = {0};

    // Whether a service does as requested: the polls after a request show it pending and then done,
    // whatever `states` was.
    bool obeys = false;

    // Delays or particular failures, before the call is answered.
    std::function<void()> onConnect = [] {};
    std::function<void()> onOpen = [] {};
    std::function<void()> onPoll = [] {};

    VirtualClock clock;
    CallLog calls;

    // Whether every handle that was returned is closed.
    [[nodiscard]] bool AllClosed() const { return handles_.empty(); }

private:
    SC_HANDLE Open(const char* kind, std::size_t& count);
    BOOL Accept(DWORD pendingState, DWORD reachedState);
    std::string Name(SC_HANDLE handle) const;
    static std::string Zeroed(const SERVICE_STATUS& status);

    std::map<SC_HANDLE, std::string> handles_;
    std::size_t managers_ = 0;
    std::size_t services_ = 0;
    std::size_t polls_ = 0;

    ImportHook<&::OpenSCManagerW> connect_;
    ImportHook<&::OpenServiceW> open_;
    ImportHook<&::StartServiceW> start_;
    ImportHook<&::ControlService> control_;
    ImportHook<&::ChangeServiceConfigW> change_;
    ImportHook<&::QueryServiceStatus> query_;
    ImportHook<&::CloseServiceHandle> close_;
    ImportHook<&::Sleep> sleep_;

public:
    FakeServices();
    FakeServices(const FakeServices&) = delete;
    FakeServices& operator=(const FakeServices&) = delete;
    ~FakeServices();
};

}  // namespace test
