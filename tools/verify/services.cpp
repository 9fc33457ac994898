#include "verify/services.h"

#include "driver/case_mapping.h"
#include "shared/owner.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace verify {

namespace {

constexpr std::size_t LargestConfiguration = 8192;  // as the platform says

constexpr const wchar_t* StateNames[] = {L"in no state",   L"stopped", L"start-pending",
                                         L"stop-pending",  L"running", L"continue-pending",
                                         L"pause-pending", L"paused"};
constexpr const wchar_t* StartTypeNames[] = {L"boot", L"system", L"automatic", L"manual",
                                             L"disabled"};

std::wstring NameOf(std::span<const wchar_t* const> names, DWORD number) {
    if (number < names.size()) {
        return names[number];
    }
    return std::to_wstring(number);
}

// What `ask` finds about the open service, or the finding for one that is not installed.
Finding AskService(const std::wstring& name, DWORD access, Verdict notInstalled,
                   const std::function<Finding(SC_HANDLE)>& ask) {
    const Utils::ServiceHandle manager(::OpenSCManagerW(
        /*lpMachineName=*/nullptr, /*lpDatabaseName=*/nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        return CannotTell(L"the service manager: " + ErrorText(::GetLastError()));
    }
    const Utils::ServiceHandle service(::OpenServiceW(manager.Get(), name.c_str(), access));
    if (!service) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
            return {notInstalled, L"not installed"};
        }
        return CannotTell(error);
    }
    return ask(service.Get());
}

Finding StateOf(const std::wstring& name, DWORD wanted, Verdict notInstalled) {
    return AskService(name, SERVICE_QUERY_STATUS, notInstalled, [&](SC_HANDLE service) {
        SERVICE_STATUS status = {};
        if (!::QueryServiceStatus(service, &status)) {
            return CannotTell(::GetLastError());
        }
        return Found(status.dwCurrentState == wanted, NameOf(StateNames, status.dwCurrentState));
    });
}

Finding StartTypeOf(const std::wstring& name) {
    const auto ask = [](SC_HANDLE service) {
        std::vector<std::byte> buffer(LargestConfiguration);
        auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
        DWORD needed = 0;
        if (!::QueryServiceConfigW(service, configuration, LargestConfiguration, &needed)) {
            return CannotTell(::GetLastError());
        }
        return Found(configuration->dwStartType == SERVICE_DISABLED,
                     NameOf(StartTypeNames, configuration->dwStartType));
    };
    return AskService(name, SERVICE_QUERY_CONFIG, Verdict::Differs, ask);
}

// Whether a process runs whose program's file name, in lower case, matches. Any process's name can
// be read, whatever the rights.
Finding ProcessWith(bool wanted, const std::function<bool(const std::wstring& file)>& matches) {
    const Utils::FileHandle processes(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process = {};
    process.dwSize = sizeof(process);
    if (!processes || !::Process32FirstW(processes.Get(), &process)) {
        return CannotTell(::GetLastError());
    }
    bool running = false;
    do {
        std::wstring file = process.szExeFile;
        ToLowerInPlace(file);
        running = matches(file);
    } while (!running && ::Process32NextW(processes.Get(), &process) != FALSE);
    return Found(running == wanted, running ? L"running" : L"not running");
}

std::wstring Lowered(std::wstring text) {
    ToLowerInPlace(text);
    return text;
}

bool IsService(const ProcessEntry& entry) {
    return !entry.name.empty() && entry.kind == EntryKind::Service;
}

}  // namespace

Rows CheckStopped(std::span<const ProcessEntry> entries,
                  std::span<const ProcessEntry> startedLater) {
    Rows rows;
    for (const ProcessEntry& entry : entries) {
        const bool started = std::ranges::any_of(startedLater, [&](const ProcessEntry& later) {
            return IsService(later) && later.name == entry.name;
        });
        if (IsService(entry) && !started) {
            rows.push_back({"stop", entry.name, L"not running",
                            StateOf(entry.name, SERVICE_STOPPED, Verdict::Ok)});
        }
        if (!entry.name.empty() && entry.kind == EntryKind::QuitApp) {
            // Like a run, looks for part of the name.
            const std::wstring part = Lowered(entry.name);
            const auto hasPart = [&](const std::wstring& file) {
                return file.find(part) != std::wstring::npos;
            };
            rows.push_back(
                {"stop", entry.name, L"not running", ProcessWith(/*wanted=*/false, hasPart)});
        }
    }
    return rows;
}

Rows CheckStarted(std::span<const ProcessEntry> entries) {
    Rows rows;
    for (const ProcessEntry& entry : entries) {
        if (IsService(entry)) {
            rows.push_back({"start", entry.name, L"running",
                            StateOf(entry.name, SERVICE_RUNNING, Verdict::Differs)});
        }
        if (!entry.name.empty() && entry.kind == EntryKind::LaunchApp) {
            const std::wstring name = Lowered(entry.name);
            const auto isName = [&](const std::wstring& file) { return file == name; };
            rows.push_back({"start", entry.name, L"running", ProcessWith(/*wanted=*/true, isName)});
        }
    }
    return rows;
}

Rows CheckDisabled(std::span<const ProcessEntry> entries) {
    Rows rows;
    for (const ProcessEntry& entry : entries) {
        if (IsService(entry)) {
            rows.push_back({"disable", entry.name, L"disabled", StartTypeOf(entry.name)});
        }
    }
    return rows;
}

}  // namespace verify
