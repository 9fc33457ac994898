#include "support/installed_service.h"

#include "shared/owner.h"
#include "support/end_process.h"

#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace test {

namespace {

using Utils::ServiceHandle;

ServiceHandle Manager() {
    return ServiceHandle(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
}

ServiceHandle Open(const std::wstring& name) {
    return ServiceHandle(::OpenServiceW(Manager().Get(), name.c_str(), SERVICE_ALL_ACCESS));
}

ServiceHandle OpenInstalled(const std::wstring& name) {
    ServiceHandle service = Open(name);
    if (!service) {
        throw std::runtime_error("a service that was installed is not there");
    }
    return service;
}

SERVICE_STATUS_PROCESS Status(SC_HANDLE service) {
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    ::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof(status), &needed);
    return status;
}

constexpr int MaxPauses = 2000;  // 10 s

// Wine's service manager has no event for a change of state.
void Pause() {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

// Returns once the service runs, or has failed to.
void WaitUntilStarted(SC_HANDLE service) {
    while (Status(service).dwCurrentState == SERVICE_START_PENDING) {
        Pause();
    }
}

std::wstring Text(const wchar_t* text) {
    return text == nullptr ? std::wstring() : std::wstring(text);
}

// A list of strings with their zeros, terminated by an empty one.
std::wstring MultiText(const wchar_t* list) {
    std::wstring text;
    while (list != nullptr && *list != L'\0') {
        const std::wstring item = list;
        text += item + L'\0';
        list += item.size() + 1;
    }
    return text;
}

}  // namespace

InstalledService::InstalledService(std::wstring name, const std::wstring& ways, DWORD startType,
                                   std::wstring program)
    : name_(std::move(name)) {
    if (program.empty()) {
        program = BesideThisProgram(L"stand_in_service.exe");
    }
    const std::wstring binaryPath = L"\"" + program + L"\" " + ways;
    const ServiceHandle service(::CreateServiceW(
        Manager().Get(), name_.c_str(), (name_ + L" (stand-in)").c_str(), SERVICE_ALL_ACCESS,
        SERVICE_WIN32_OWN_PROCESS, startType, SERVICE_ERROR_NORMAL, binaryPath.c_str(), nullptr,
        nullptr, nullptr, nullptr, nullptr));
    if (!service) {
        throw std::runtime_error("a service cannot be installed, error " +
                                 std::to_string(::GetLastError()));
    }
}

InstalledService::~InstalledService() {
    {
        const ServiceHandle service = Open(name_);
        // Deleted first, so that nothing can start it again; it disappears with its process,
        // whose ID is unknown while it starts.
        ::DeleteService(service.Get());
        WaitUntilStarted(service.Get());
        EndProcess(Status(service.Get()).dwProcessId);
    }
    // The name is free once the service manager, too, has seen the process end.
    for (int tries = 0; tries < MaxPauses && Open(name_); ++tries) {
        Pause();
    }
}

ServiceDescription InstalledService::Describe() const {
    const ServiceHandle service = OpenInstalled(name_);
    DWORD needed = 0;
    ::QueryServiceConfigW(service.Get(), nullptr, 0, &needed);
    std::vector<std::byte> buffer(needed);
    auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    if (!::QueryServiceConfigW(service.Get(), config, needed, &needed)) {
        throw std::runtime_error("a service's configuration cannot be read");
    }
    return {.serviceType = config->dwServiceType,
            .startType = config->dwStartType,
            .errorControl = config->dwErrorControl,
            .binaryPath = Text(config->lpBinaryPathName),
            .loadOrderGroup = Text(config->lpLoadOrderGroup),
            .tagId = config->dwTagId,
            .dependencies = MultiText(config->lpDependencies),
            .account = Text(config->lpServiceStartName),
            .displayName = Text(config->lpDisplayName),
            .state = Status(service.Get()).dwCurrentState};
}

void InstalledService::Start() const {
    const ServiceHandle service = OpenInstalled(name_);
    if (!::StartServiceW(service.Get(), 0, nullptr)) {
        throw std::runtime_error("a service cannot be started, error " +
                                 std::to_string(::GetLastError()));
    }
    WaitUntilStarted(service.Get());
}

std::wstring BesideThisProgram(const std::wstring& fileName) {
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring own = path;
    return own.substr(0, own.rfind(L'\\') + 1) + fileName;
}

}  // namespace test
