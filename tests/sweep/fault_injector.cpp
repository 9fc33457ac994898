#include "sweep/fault_injector.h"

#include "support/import_hook.h"
#include "support/split_path.h"

#include <winsock2.h>

#include <aclapi.h>
#include <iphlpapi.h>
#include <objbase.h>
#include <oleauto.h>
#include <psapi.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <utility>

// The hooked function's attributes do not belong in the hook's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace test {

namespace {

// One way in which a call fails: its result, and the last error that it sets.
struct Way {
    long long result;
    DWORD lastError;
};

constexpr DWORD Errors[] = {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_NO_SYSTEM_RESOURCES};

// For a function that returns this on failure, and sets the last error.
std::vector<Way> Leaves(long long failing) {
    std::vector<Way> ways;
    for (const DWORD error : Errors) {
        ways.push_back({failing, error});
    }
    return ways;
}

// For a function that returns an error code.
std::vector<Way> Returns(std::initializer_list<long long> codes) {
    std::vector<Way> ways;
    for (const long long code : codes) {
        ways.push_back({code, ERROR_SUCCESS});
    }
    return ways;
}

std::vector<Way> ReturnsErrors() {
    return Returns({ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_NO_SYSTEM_RESOURCES});
}

constexpr HRESULT ComResults[] = {E_ACCESSDENIED, E_FAIL, E_OUTOFMEMORY};

std::vector<Way> ReturnsComResults() {
    return Returns({E_ACCESSDENIED, REGDB_E_CLASSNOTREG, E_OUTOFMEMORY});
}

template <typename Result>
Result Fail(const Way& way) {
    ::SetLastError(way.lastError);
    if constexpr (std::is_pointer_v<Result>) {
        return reinterpret_cast<Result>(static_cast<INT_PTR>(way.result));
    } else {
        return static_cast<Result>(way.result);
    }
}

FaultInjector* active = nullptr;

}  // namespace

// A function that it intercepts.
class FaultInjector::Import {
public:
    explicit Import(const char* name) : name_(name) {}
    Import(const Import&) = delete;
    Import& operator=(const Import&) = delete;
    virtual ~Import() = default;

    [[nodiscard]] const char* Name() const { return name_; }

private:
    const char* name_;
};

template <auto Function, typename Result, typename... Arguments>
class FaultInjector::FaultyImport<Function, Result(Arguments...)> : public Import {
public:
    FaultyImport(const char* name, std::vector<Way> ways, bool isRelease)
        : Import(name),
          hook_([this, name, ways = std::move(ways), isRelease](Arguments... arguments) -> Result {
              const std::optional<std::size_t> way = active->Next(name, ways.size());
              if (!way) {
                  return hook_.Forward(arguments...);
              }
              if (isRelease) {
                  hook_.Forward(arguments...);
              }
              return Fail<Result>(ways[*way]);
          }) {}

private:
    ImportHook<Function> hook_;
};

namespace {

// A function that the program looks up at run time, and may keep: the pointer that it gets
// intercepts the platform's, with or without an injector.
template <typename Signature>
class Lookup;

template <typename Result, typename... Arguments>
class Lookup<Result(Arguments...)> {
public:
    static FARPROC Wrap(const char* name, FARPROC found) {
        name_ = name;
        platform_ = reinterpret_cast<Result (*)(Arguments...)>(reinterpret_cast<void*>(found));
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Call));
    }

private:
    static Result Call(Arguments... arguments) {
        const std::vector<Way> ways = ReturnsErrors();
        const std::optional<std::size_t> way =
            active == nullptr ? std::nullopt : active->Next(name_, ways.size());
        return way ? Fail<Result>(ways[*way]) : platform_(arguments...);
    }

    static inline const char* name_ = nullptr;
    static inline Result (*platform_)(Arguments...) = nullptr;
};

FARPROC Wrapped(const std::string& name, FARPROC found) {
    if (found != nullptr && name == "RegDeleteKeyExW") {
        return Lookup<decltype(::RegDeleteKeyExW)>::Wrap("RegDeleteKeyExW", found);
    }
    if (found != nullptr && name == "GetAdaptersAddresses") {
        return Lookup<decltype(::GetAdaptersAddresses)>::Wrap("GetAdaptersAddresses", found);
    }
    return found;
}

}  // namespace

class FaultInjector::LookupImport : public Import {
public:
    LookupImport() : Import("GetProcAddress") {}

private:
    ImportHook<&::GetProcAddress> hook_{[this](HMODULE module, LPCSTR name) -> FARPROC {
        const std::vector<Way> ways = Leaves(0);
        const std::optional<std::size_t> way = active->Next("GetProcAddress", ways.size());
        return way ? Fail<FARPROC>(ways[*way]) : Wrapped(name, hook_.Forward(module, name));
    }};
};

FaultInjector::FaultInjector(FakeTaskService& taskService, Decision decision)
    : taskService_(taskService), decision_(std::move(decision)) {
    const auto add = [this]<auto Function>(const char* name, const std::vector<Way>& ways,
                                           bool isRelease = false) {
        imports_.push_back(
            std::make_unique<FaultyImport<Function, std::remove_pointer_t<decltype(Function)>>>(
                name, ways, isRelease));
    };
    constexpr bool IsRelease = true;
    const std::vector<Way> no = Leaves(FALSE);
    const std::vector<Way> null = Leaves(0);
    const std::vector<Way> invalid = Leaves(-1);
    const std::vector<Way> refused = {{FALSE, ERROR_INVALID_HANDLE}};

    // Registry
    add.operator()<&::RegOpenKeyExW>("RegOpenKeyExW", ReturnsErrors());
    add.operator()<&::RegCreateKeyExW>("RegCreateKeyExW", ReturnsErrors());
    add.operator()<&::RegQueryValueExW>("RegQueryValueExW", ReturnsErrors());
    add.operator()<&::RegSetValueExW>("RegSetValueExW", ReturnsErrors());
    add.operator()<&::RegEnumKeyExW>("RegEnumKeyExW", ReturnsErrors());
    add.operator()<&::RegDeleteValueW>("RegDeleteValueW", ReturnsErrors());
    add.operator()<&::RegCloseKey>("RegCloseKey", Returns({ERROR_INVALID_HANDLE}), IsRelease);

    // Services
    add.operator()<&::OpenSCManagerW>("OpenSCManagerW", null);
    add.operator()<&::OpenServiceW>("OpenServiceW", null);
    add.operator()<&::StartServiceW>("StartServiceW", no);
    add.operator()<&::ControlService>("ControlService", no);
    add.operator()<&::ChangeServiceConfigW>("ChangeServiceConfigW", no);
    add.operator()<&::QueryServiceStatus>("QueryServiceStatus", no);
    add.operator()<&::CloseServiceHandle>("CloseServiceHandle", refused, IsRelease);

    // Processes
    add.operator()<&::K32EnumProcesses>("K32EnumProcesses", no);
    add.operator()<&::OpenProcess>("OpenProcess", null);
    add.operator()<&::QueryFullProcessImageNameW>("QueryFullProcessImageNameW", no);
    add.operator()<&::OpenProcessToken>("OpenProcessToken", no);
    add.operator()<&::CreateProcessW>("CreateProcessW", no);
    add.operator()<&::CreateProcessAsUserW>("CreateProcessAsUserW", no);
    add.operator()<&::WaitForSingleObject>(
        "WaitForSingleObject", Returns({static_cast<long long>(WAIT_FAILED), WAIT_TIMEOUT}));
    add.operator()<&::CloseHandle>("CloseHandle", refused, IsRelease);

    // Files and their security
    add.operator()<&::ExpandEnvironmentStringsW>("ExpandEnvironmentStringsW", no);
    add.operator()<static_cast<SplitPath*>(&::_wsplitpath_s)>("_wsplitpath_s",
                                                              Returns({EINVAL, ERANGE}));
    add.operator()<&::GetFileAttributesW>("GetFileAttributesW", invalid);
    add.operator()<&::CreateDirectoryW>("CreateDirectoryW", no);
    add.operator()<&::CopyFileW>("CopyFileW", no);
    add.operator()<&::DeleteFileW>("DeleteFileW", no);
    add.operator()<&::CreateFileW>("CreateFileW", invalid);
    add.operator()<&::GetFileInformationByHandle>("GetFileInformationByHandle", no);
    add.operator()<&::FindFirstFileW>("FindFirstFileW", invalid);
    add.operator()<&::FindNextFileW>("FindNextFileW", no);
    add.operator()<&::FindClose>("FindClose", refused, IsRelease);
    add.operator()<&::InitializeAcl>("InitializeAcl", no);
    add.operator()<&::IsValidSid>("IsValidSid", no);
    add.operator()<&::AddAccessAllowedAceEx>("AddAccessAllowedAceEx", no);
    add.operator()<&::SetNamedSecurityInfoW>("SetNamedSecurityInfoW", ReturnsErrors());

    // Event log
    add.operator()<&::RegisterEventSourceW>("RegisterEventSourceW", null);
    add.operator()<&::ReportEventW>("ReportEventW", no);
    add.operator()<&::DeregisterEventSource>("DeregisterEventSource", refused, IsRelease);

    // Adapters
    add.operator()<&::LoadLibraryExW>("LoadLibraryExW", null);
    add.operator()<&::FreeLibrary>("FreeLibrary", refused, IsRelease);
    imports_.push_back(std::make_unique<LookupImport>());

    // COM
    add.operator()<&::CoInitializeEx>("CoInitializeEx",
                                      Returns({E_INVALIDARG, E_OUTOFMEMORY, RPC_E_CHANGED_MODE}));
    add.operator()<&::CoCreateInstance>("CoCreateInstance", ReturnsComResults());
    add.operator()<&::OleRun>("OleRun", ReturnsComResults());
    add.operator()<&::GetErrorInfo>("GetErrorInfo", Returns({S_FALSE, E_INVALIDARG}));
    add.operator()<&::SysAllocString>("SysAllocString", null);
    add.operator()<&::FormatMessageW>("FormatMessageW", no);
    add.operator()<&::LocalFree>("LocalFree", Returns({1}), IsRelease);
    taskService_.onCall = [this](std::string_view method) -> std::optional<HRESULT> {
        const std::optional<std::size_t> way = Next(method, std::size(ComResults));
        return way ? std::optional(ComResults[*way]) : std::nullopt;
    };

    active = this;
}

FaultInjector::~FaultInjector() {
    active = nullptr;
    taskService_.onCall = nullptr;
    // Hooks end in reverse order.
    while (!imports_.empty()) {
        imports_.pop_back();
    }
}

std::optional<std::size_t> FaultInjector::Next(std::string_view function, std::size_t ways) {
    const std::size_t call = calls_.size();
    calls_.push_back({function, ways});
    const std::optional<std::size_t> way = decision_(call);
    if (!way) {
        return std::nullopt;
    }
    ++failed_;
    return std::min(*way, ways - 1);
}

std::vector<std::string> FaultInjector::Functions() const {
    std::vector<std::string> names;
    for (const auto& each : imports_) {
        names.emplace_back(each->Name());
    }
    return names;
}

}  // namespace test
