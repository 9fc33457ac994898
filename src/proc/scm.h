#pragma once

#include "shared/owner.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace Utils {

// One connection to the service manager of this machine. Each operation takes the service's name,
// opens it with just the access that it needs, and returns false on any failure: no connection, no
// such service, no right, a request that the service refuses.
class SCM {
public:
    SCM();
    SCM(const SCM&) = delete;
    SCM& operator=(const SCM&) = delete;
    virtual ~SCM() = default;

    // Ask for a start or a stop without waiting for it. A service that already runs, or does not
    // run, refuses.
    [[nodiscard]] bool RequestStart(const std::wstring& name) const;
    [[nodiscard]] bool RequestStop(const std::wstring& name) const;

    // Sets the start type to disabled and leaves the rest of the configuration as it is.
    [[nodiscard]] bool SetDisabled(const std::wstring& name) const;

    // Polls every 500 ms until the service is exactly in the state `target`; false once `timeoutMs`
    // milliseconds have passed. A poll that fails leaves the last known state. Nothing is done with
    // `reserved`.
    [[nodiscard]] bool WaitForState(const std::wstring& name, DWORD target, std::uint64_t reserved,
                                    DWORD timeoutMs) const;

private:
    [[nodiscard]] ServiceHandle Open(const std::wstring& name, DWORD access) const;

    ServiceHandle manager_;
};

}  // namespace Utils
