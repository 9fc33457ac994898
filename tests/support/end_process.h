#pragma once

#include "shared/owner.h"

#include <windows.h>

namespace test {

// Switches the right to open every process on or off, which administrators have, but switched off.
inline void SetDebugRight(bool on) {
    HANDLE opened = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &opened);
    const Utils::KernelHandle token(opened);
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = on ? SE_PRIVILEGE_ENABLED : 0;
    ::LookupPrivilegeValueW(nullptr, SE_DEBUG_NAME, &privileges.Privileges[0].Luid);
    ::AdjustTokenPrivileges(token.Get(), FALSE, &privileges, 0, nullptr, nullptr);
}

// The process with the right to end it and wait for that, or null. A service's is Local System's,
// which Windows lets nobody else end without further ado.
inline HANDLE OpenToEnd(DWORD id) {
    constexpr DWORD Rights = PROCESS_TERMINATE | SYNCHRONIZE;
    HANDLE process = ::OpenProcess(Rights, FALSE, id);
    if (process == nullptr && ::GetLastError() == ERROR_ACCESS_DENIED) {
        SetDebugRight(true);
        process = ::OpenProcess(Rights, FALSE, id);
        SetDebugRight(false);
    }
    return process;
}

// Terminates a process, if it exists, and waits for its end.
inline void EndProcess(DWORD id) {
    const Utils::KernelHandle process(OpenToEnd(id));
    if (process) {
        ::TerminateProcess(process.Get(), 1);
        ::WaitForSingleObject(process.Get(), INFINITE);
    }
}

}  // namespace test
