#pragma once
#include_next <winreg.h>

// Missing in Wine's.
#define HKEY_CURRENT_USER_LOCAL_SETTINGS ((HKEY)(ULONG_PTR)((LONG)0x80000007))
#ifdef __cplusplus
extern "C" {
#endif
LSTATUS WINAPI RegCreateKeyTransactedW(HKEY key, LPCWSTR name, DWORD reserved, LPWSTR keyClass,
                                       DWORD options, REGSAM access,
                                       const SECURITY_ATTRIBUTES* attributes, PHKEY result,
                                       LPDWORD disposition, HANDLE transaction, PVOID extended);
LSTATUS WINAPI RegDeleteKeyTransactedW(HKEY key, LPCWSTR name, REGSAM access, DWORD reserved,
                                       HANDLE transaction, PVOID extended);
LSTATUS WINAPI RegOpenKeyTransactedW(HKEY key, LPCWSTR name, DWORD options, REGSAM access,
                                     PHKEY result, HANDLE transaction, PVOID extended);
#ifdef __cplusplus
}
#endif
