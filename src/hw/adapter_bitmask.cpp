#include "hw/adapter_bitmask.h"

#include "config/service_parameters.h"
#include "driver/case_mapping.h"
#include "driver/console_log.h"
#include "hw/regex_match.h"
#include "registry/registry_setting.h"
#include "shared/find_function.h"
#include "shared/owner.h"

#include <winsock2.h>

#include <iphlpapi.h>

std::uint32_t g_hardwareBitmask = 0;  // NOLINT(*-avoid-non-const-global-variables)

namespace {

constexpr std::uint32_t MatchTheAdapters = 1;  // the gate's one value that is no bitmask

// The platform's records of all adapters; empty on failure.
std::vector<std::byte> QueryAdapters() {
    // From the system directory only: an import would load a file of that name from the program's
    // own directory.
    const Utils::Library library(
        ::LoadLibraryExW(L"iphlpapi.dll", /*hFile=*/nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    const auto getAdaptersAddresses = Utils::FindFunction<decltype(::GetAdaptersAddresses)>(
        library.Get(), "GetAdaptersAddresses");
    if (getAdaptersAddresses == nullptr) {
        return {};
    }

    ULONG size = 0;
    ULONG error = getAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_ALL_INTERFACES,
                                       /*Reserved=*/nullptr, /*AdapterAddresses=*/nullptr, &size);
    if (error != ERROR_BUFFER_OVERFLOW) {
        return {};
    }
    if (size == 0) {
        ConsolePrint("Error allocating memory needed to call GetAdaptersAddresses\n");
        return {};
    }
    static_assert(alignof(IP_ADAPTER_ADDRESSES) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    std::vector<std::byte> adapters(size);
    error = getAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_ALL_INTERFACES, /*Reserved=*/nullptr,
                                 reinterpret_cast<IP_ADAPTER_ADDRESSES*>(adapters.data()), &size);
    if (error != ERROR_SUCCESS) {
        // The older function's name on purpose.
        ConsolePrint("GetAdaptersInfo failed with error: %lu\n", error);
        return {};
    }
    return adapters;
}

}  // namespace

std::uint32_t ComputeHardwareBitmask(const std::wstring& gateValueName,
                                     const std::wstring& resultValueName) {
    // Listed, and errors logged, whatever the gate says, on purpose.
    const std::vector<std::wstring> descriptions = ListPresentAdapterDescriptions(QueryAdapters());

    std::uint32_t bitmask = GetDwordWithDefault(HKEY_LOCAL_MACHINE, ServiceParametersKey,
                                                gateValueName, MatchTheAdapters);
    if (bitmask == MatchTheAdapters) {
        bitmask = 0;
        for (const std::wstring& description : descriptions) {
            bitmask |= MatchAdapterBitmask(description);
        }
    }

    WriteSetting({.root = HKEY_LOCAL_MACHINE,
                  .keyPath = HardwareBitmaskKey,
                  .valueName = resultValueName,
                  .type = REG_DWORD,
                  .number = bitmask});
    return bitmask;
}

std::vector<std::wstring> ListPresentAdapterDescriptions(std::span<const std::byte> adapters) {
    std::vector<std::wstring> descriptions;
    if (adapters.empty()) {
        return descriptions;
    }
    for (const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(adapters.data());
         adapter != nullptr; adapter = adapter->Next) {
        if (adapter->OperStatus != IfOperStatusNotPresent) {
            descriptions.emplace_back(adapter->Description);
        }
    }
    return descriptions;
}

std::uint32_t MatchAdapterBitmask(const std::wstring& description) {
    return MatchAdapterBitmask(description, HardwarePatternTable);
}

std::uint32_t MatchAdapterBitmask(const std::wstring& description,
                                  std::span<const AdapterPattern> patterns) {
    std::wstring lowered = description;
    ToLowerInPlace(lowered);
    for (const auto& [pattern, mask] : patterns) {
        if (RegexMatchesWhole(pattern, lowered)) {
            // Two blanks on purpose.
            ConsolePrint("Found Adapter %ls to configure  Bitmask 0x%lx\r\n", description.c_str(),
                         static_cast<unsigned long>(mask));
            return mask;
        }
    }
    return 0;
}
