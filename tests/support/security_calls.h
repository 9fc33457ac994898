#pragma once

#include "support/call_log.h"
#include "support/import_hook.h"

#include <windows.h>

#include <aclapi.h>

#include <map>
#include <string>

namespace test {

// Stands in for SetNamedSecurityInfoW: records each call, changes nothing, and leaves a last error
// that has nothing to do with its result.
class SecurityCalls {
public:
    std::map<std::wstring, DWORD> errors;  // by path; the call succeeds for any other one

    [[nodiscard]] const Calls& Made() const { return calls_; }

private:
    Calls calls_;
    ImportHook<&::SetNamedSecurityInfoW> hook_;

public:
    SecurityCalls();
};

// The call that gives a path these entries alone, in the notation (type;flags;rights;;;trustee).
std::string ProtectedDacl(const std::wstring& path, const std::string& entries);

// The call that leaves a path what it inherits.
std::string InheritedDacl(const std::wstring& path);

}  // namespace test
