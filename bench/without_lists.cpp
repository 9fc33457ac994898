// For the program as it is compared with the system's own tools where icacls does nothing: it sets
// no access list either, and goes on as if it had.

#include <windows.h>

#include <aclapi.h>

namespace {

DWORD WINAPI SetNoList(LPWSTR /*name*/, SE_OBJECT_TYPE /*type*/, SECURITY_INFORMATION /*parts*/,
                       PSID /*owner*/, PSID /*group*/, PACL /*list*/, PACL /*auditList*/) {
    return ERROR_SUCCESS;
}

}  // namespace

// What the program calls through; the linker takes it before the import library's.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier)
decltype(&::SetNamedSecurityInfoW) __imp_SetNamedSecurityInfoW = &SetNoList;
}
