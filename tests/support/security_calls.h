#pragma once

#include "support/call_log.h"
#include "support/import_hook.h"

#include <windows.h>

#include <aclapi.h>

#include <map>
#include <string>

namespace test {

// Replaces SetNamedSecurityInfoW: records each call, changes nothing, and sets a last error
// unrelated to its result.
class SecurityCalls {
public:
    std::map<std::wstring, DWORD> errors;  // by path; the call succeeds for others

    [[nodiscard]] const Calls& Made() const { return calls_; }

private:
    Calls calls_;
    ImportHook<&::SetNamedSecurityInfoW> hook_;

public:
    SecurityCalls();
};

// The call that gives a path only these entries, in the notation (type;flags;rights;;;trustee).
std::string ProtectedDacl(const std::wstring& path, const std::string& entries);

// The call that leaves a path only its inherited entries.
std::string InheritedDacl(const std::wstring& path);

}  // namespace test
