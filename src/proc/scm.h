#pragma once

#include "shared/owner.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace Utils {

// One connection to the service manager of this machine. Each operation takes the service's name,
// opens it with only the access that it needs, and returns false on any failure: no connection, no
// such service, access denied, a request that the service refuses.
class SCM {
public:
    SCM();
    SCM(const SCM&) = delete;
    SCM& operator=(const SCM&) = delete;
    virtual ~SCM() = default;

    // Request a start or a stop without waiting for it. They fail if the service already runs or is
    // already stopped.
    [[nodiscard]] bool RequestStart(const std::wstring& name) const;
    [[nodiscard]] bool RequestStop(const std::wstring& name) const;

    // Sets the start type to disabled and changes nothing else of the configuration.
    [[nodiscard]] bool SetDisabled(const std::wstring& name) const;

    // Polls every 500 ms until the service is exactly in the state `target`; returns false once
    // `timeoutMs` milliseconds have passed. A failed poll keeps the last known state. `reserved` is
    // unused.
    [[nodiscard]] bool WaitForState(const std::wstring& name, DWORD target, std::uint64_t reserved,
                                    DWORD timeoutMs) const;

private:
    [[nodiscard]] ServiceHandle Open(const std::wstring& name, DWORD access) const;

    ServiceHandle manager_;
};

}  // namespace Utils
