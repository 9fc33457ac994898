#include "proc/applications.h"

#include "driver/case_mapping.h"
#include "driver/console_log.h"
#include "proc/process.h"
#include "shared/owner.h"

#include <windows.h>

#include <psapi.h>

#include <cstddef>
#include <vector>

namespace {

constexpr wchar_t QuitHelper[] = L"Quitline.exe";
constexpr DWORD QuitHelperTimeoutMs = 30'000;
constexpr std::size_t MaxProcesses = 4096;
constexpr DWORD TokenAccess =
    TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY;

// The first process whose image path contains `name` in any case, or none. A process whose path
// cannot be queried is skipped.
Utils::KernelHandle FindProcess(std::wstring name) {
    ToLowerInPlace(name);
    std::vector<DWORD> ids(MaxProcesses);
    DWORD bytes = 0;
    if (::K32EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &bytes)) {
        ids.resize(bytes / sizeof(DWORD));
    }
    for (const DWORD id : ids) {
        Utils::KernelHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
        if (!process) {
            continue;
        }
        std::wstring path = GetProcessImagePath(process.Get());
        ToLowerInPlace(path);
        if (path.find(name) != std::wstring::npos) {
            return process;
        }
    }
    return {};
}

Utils::KernelHandle OpenPrimaryToken(HANDLE process) {
    HANDLE token = nullptr;
    return ::OpenProcessToken(process, TokenAccess, &token) ? Utils::KernelHandle(token)
                                                            : Utils::KernelHandle();
}

bool LaunchFromOwnDirectory(const std::wstring& name, const std::wstring& arguments) {
    const std::wstring directory = GetOwnDirectory();
    PROCESS_INFORMATION info = {};
    STARTUPINFOW startup = {};  // all zero on purpose, its size field included
    if (directory.empty() ||
        !LaunchProcess(/*token=*/nullptr, directory + name, arguments, info, startup)) {
        return false;
    }
    const Utils::KernelHandle thread(info.hThread);
    const Utils::KernelHandle process(info.hProcess);
    return true;
}

}  // namespace

bool StopApplication(const std::wstring& name, const std::wstring& windowTitle) {
    if (name.empty() || windowTitle.empty()) {
        return false;
    }
    ConsolePrint("Stopping Application %ls....with Window Title %ls ", name.c_str(),
                 windowTitle.c_str());
    const Utils::KernelHandle process = FindProcess(name);
    if (!process) {
        ConsolePrint(" application not found!\r\n");
        return false;
    }
    const Utils::KernelHandle token = OpenPrimaryToken(process.Get());
    if (!token) {
        return false;  // leaves the line open on purpose
    }
    const bool quit = RunProcess(token.Get(), QuitHelper, windowTitle, QuitHelperTimeoutMs);
    ConsolePrint(
        " Process %ls Started in context of %ls application to send QUIT Message - Success=%ls\r\n",
        QuitHelper, name.c_str(), quit ? L"True" : L"False");
    return quit;
}

bool StartApplication(const std::wstring& name, const std::wstring& arguments) {
    ConsolePrint("Starting Application %ls with command line %ls....", name.c_str(),
                 arguments.c_str());
    const bool started = LaunchFromOwnDirectory(name, arguments);
    ConsolePrint("%s", started ? "started\r\n" : "start failed!\r\n");
    return started;
}
