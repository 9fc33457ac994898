// The program for the comparison with the system's own tools where icacls does nothing: it sets no
// access control list either, and goes on as if it had.

#include <windows.h>

#include <aclapi.h>

namespace {

DWORD WINAPI SetNoList(LPWSTR /*name*/, SE_OBJECT_TYPE /*type*/, SECURITY_INFORMATION /*parts*/,
                       PSID /*owner*/, PSID /*group*/, PACL /*list*/, PACL /*auditList*/) {
    return ERROR_SUCCESS;
}

}  // namespace

// The pointer for the program's call; the linker prefers it to the import library's.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier)
decltype(&::SetNamedSecurityInfoW) __imp_SetNamedSecurityInfoW = &SetNoList;
}
