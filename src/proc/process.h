#pragma once

#include <windows.h>

#include <string>

// Starts `application` with `arguments` as the user of `token`, or as the current user if the token
// is null. The new process inherits handles, environment and current directory. Returns whether it
// was started; if so, fills `processInfo`, and the caller closes its two handles.
bool LaunchProcess(HANDLE token, const std::wstring& application, const std::wstring& arguments,
                   PROCESS_INFORMATION& processInfo, STARTUPINFOW& startupInfo);

// Starts a program as LaunchProcess does and waits until it ends, for at most `timeoutMs`
// milliseconds; if it takes longer, it is left running. Returns whether it was started and ended in
// time. A failed wait counts as ended.
bool RunProcess(HANDLE token, const std::wstring& application, const std::wstring& arguments,
                DWORD timeoutMs);

// The directory of this program's executable with a trailing backslash, or empty on failure.
std::wstring GetOwnDirectory();

// The full path of a process's executable, at most 259 characters, or empty on failure.
std::wstring GetProcessImagePath(HANDLE process);
