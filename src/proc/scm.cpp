#include "proc/scm.h"

namespace Utils {

namespace {

constexpr DWORD PollIntervalMs = 500;

}  // namespace

SCM::SCM()
    : manager_(::OpenSCManagerW(/*lpMachineName=*/nullptr, /*lpDatabaseName=*/nullptr,
                                SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE)) {}

ServiceHandle SCM::Open(const std::wstring& name, DWORD access) const {
    return manager_ ? ServiceHandle(::OpenServiceW(manager_.Get(), name.c_str(), access))
                    : ServiceHandle();
}

bool SCM::RequestStart(const std::wstring& name) const {
    const ServiceHandle service = Open(name, SERVICE_START);
    return service && ::StartServiceW(service.Get(), 0, nullptr) != FALSE;
}

bool SCM::RequestStop(const std::wstring& name) const {
    const ServiceHandle service = Open(name, SERVICE_STOP);
    SERVICE_STATUS status = {};
    return service && ::ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) != FALSE;
}

bool SCM::SetDisabled(const std::wstring& name) const {
    const ServiceHandle service = Open(name, SERVICE_CHANGE_CONFIG);
    return service &&
           ::ChangeServiceConfigW(service.Get(), SERVICE_NO_CHANGE, SERVICE_DISABLED,
                                  SERVICE_NO_CHANGE, /*lpBinaryPathName=*/nullptr,
                                  /*lpLoadOrderGroup=*/nullptr, /*lpdwTagId=*/nullptr,
                                  /*lpDependencies=*/nullptr, /*lpServiceStartName=*/nullptr,
                                  /*lpPassword=*/nullptr, /*lpDisplayName=*/nullptr) != FALSE;
}

bool SCM::WaitForState(const std::wstring& name, DWORD target, std::uint64_t /*reserved*/,
                       DWORD timeoutMs) const {
    const ServiceHandle service = Open(name, SERVICE_QUERY_STATUS);
    if (!service) {
        return false;
    }
    const ULONGLONG start = ::GetTickCount64();
    DWORD lastKnownState = 0;
    for (;;) {
        SERVICE_STATUS status = {};
        if (::QueryServiceStatus(service.Get(), &status)) {
            lastKnownState = status.dwCurrentState;
        }
        if (lastKnownState == target) {
            return true;
        }
        ::Sleep(PollIntervalMs);
        if (static_cast<DWORD>(::GetTickCount64() - start) >= timeoutMs) {
            return false;
        }
    }
}

}  // namespace Utils
