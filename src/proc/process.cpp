#include "proc/process.h"

#include "shared/owner.h"

#include <cstddef>

bool LaunchProcess(HANDLE token, const std::wstring& application, const std::wstring& arguments,
                   PROCESS_INFORMATION& processInfo, STARTUPINFOW& startupInfo) {
    // Unquoted on purpose, even if the path has blanks; with its blank, even without arguments.
    std::wstring commandLine = application + L" " + arguments;
    if (token != nullptr) {
        return ::CreateProcessAsUserW(
                   token, /*lpApplicationName=*/nullptr, commandLine.data(),
                   /*lpProcessAttributes=*/nullptr, /*lpThreadAttributes=*/nullptr,
                   /*bInheritHandles=*/TRUE, /*dwCreationFlags=*/0, /*lpEnvironment=*/nullptr,
                   /*lpCurrentDirectory=*/nullptr, &startupInfo, &processInfo) != FALSE;
    }
    return ::CreateProcessW(/*lpApplicationName=*/nullptr, commandLine.data(),
                            /*lpProcessAttributes=*/nullptr, /*lpThreadAttributes=*/nullptr,
                            /*bInheritHandles=*/TRUE, /*dwCreationFlags=*/0,
                            /*lpEnvironment=*/nullptr, /*lpCurrentDirectory=*/nullptr, &startupInfo,
                            &processInfo) != FALSE;
}

bool RunProcess(HANDLE token, const std::wstring& application, const std::wstring& arguments,
                DWORD timeoutMs) {
    PROCESS_INFORMATION info = {};
    STARTUPINFOW startup = {};  // all zero on purpose, its size field included
    if (!LaunchProcess(token, application, arguments, info, startup)) {
        return false;
    }
    const Utils::KernelHandle thread(info.hThread);
    const Utils::KernelHandle process(info.hProcess);
    return ::WaitForSingleObject(process.Get(), timeoutMs) != WAIT_TIMEOUT;
}

std::wstring GetOwnDirectory() {
    const std::wstring path = GetProcessImagePath(::GetCurrentProcess());
    const std::size_t backslash = path.rfind(L'\\');
    if (backslash == std::wstring::npos || backslash < 2) {
        return {};
    }
    return path.substr(0, backslash + 1);
}

std::wstring GetProcessImagePath(HANDLE process) {
    if (process == nullptr) {
        return {};
    }
    wchar_t path[MAX_PATH] = {};
    DWORD size = MAX_PATH;
    if (!::QueryFullProcessImageNameW(process, 0, path, &size)) {
        return {};
    }
    return path;
}
