#pragma once

#include <windows.h>

#include <string>

// Starts `application` with `arguments` as the user of `token`, or as this program's own user if
// the token is null. The new process inherits handles, environment and current directory. Returns
// whether it was started; then `processInfo` is filled, and the caller closes its two handles.
bool LaunchProcess(HANDLE token, const std::wstring& application, const std::wstring& arguments,
                   PROCESS_INFORMATION& processInfo, STARTUPINFOW& startupInfo);

// Starts a program as LaunchProcess does and waits until it ends, for at most `timeoutMs`
// milliseconds; one that takes longer is left running. Returns whether it was started and ended in
// time. A wait that fails counts as ended.
bool RunProcess(HANDLE token, const std::wstring& application, const std::wstring& arguments,
                DWORD timeoutMs);

// The directory of this program's executable with a trailing backslash, or empty if it cannot be
// told.
std::wstring GetOwnDirectory();

// The full path of a process's executable, at most 259 characters, or empty if it cannot be told.
std::wstring GetProcessImagePath(HANDLE process);
