#include "verify/settings.h"

#include "config/service_parameters.h"
#include "driver/case_mapping.h"
#include "hw/adapter_bitmask.h"
#include "hw/regex_match.h"
#include "registry/registry_key.h"
#include "shared/find_function.h"
#include "shared/owner.h"

#include <winsock2.h>

#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace verify {

namespace {

constexpr char Kind[] = "setting";
constexpr std::size_t ShownCharacters = 256;   // of a value's text, unless more are expected
constexpr std::uint32_t MatchTheAdapters = 1;  // the gate's one value that is no bitmask
constexpr int MostQueries = 4;                 // adapters may come and go meanwhile

struct StoredValue {
    LSTATUS error;
    std::optional<std::uint32_t> number{};  // of a REG_DWORD that is one
    std::wstring text{};                    // whatever it is
};

std::wstring InQuotes(const std::wstring& text) {
    return L'"' + text + L'"';
}

StoredValue ReadValue(const RegistrySetting& setting) {
    Utils::RegistryKey key;
    LSTATUS error = key.Open(setting.root, setting.keyPath,
                             KEY_QUERY_VALUE | (setting.view32 ? KEY_WOW64_32KEY : 0));
    if (error != ERROR_SUCCESS) {
        return {error};
    }
    // Only the size of what does not fit.
    std::vector<wchar_t> buffer(std::max(ShownCharacters, setting.text.size() + 1));
    DWORD type = REG_NONE;
    auto bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    error = ::RegQueryValueExW(key.Get(), setting.valueName.c_str(), /*lpReserved=*/nullptr, &type,
                               reinterpret_cast<BYTE*>(buffer.data()), &bytes);
    if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) {
        return {error};
    }
    if (error == ERROR_SUCCESS && type == REG_DWORD && bytes == sizeof(std::uint32_t)) {
        std::uint32_t number = 0;
        std::memcpy(&number, buffer.data(), sizeof(number));
        return {ERROR_SUCCESS, number, std::to_wstring(number)};
    }
    if (error == ERROR_SUCCESS && type == REG_SZ) {
        const std::wstring text(buffer.data(), bytes / sizeof(wchar_t));
        return {ERROR_SUCCESS, std::nullopt, InQuotes(text.substr(0, text.find(L'\0')))};
    }
    return {ERROR_SUCCESS, std::nullopt,
            std::to_wstring(bytes) + L" bytes of type " + std::to_wstring(type)};
}

Finding OfValue(const StoredValue& value, const std::wstring& expected) {
    if (value.error == ERROR_SUCCESS) {
        return Found(value.text == expected, value.text);
    }
    if (value.error == ERROR_FILE_NOT_FOUND) {
        return Found(expected == L"absent", L"absent");
    }
    return CannotTell(static_cast<DWORD>(value.error));
}

Finding OfKey(const RegistrySetting& setting) {
    Utils::RegistryKey key;
    const LSTATUS error = key.Open(setting.root, setting.keyPath,
                                   KEY_QUERY_VALUE | (setting.view32 ? KEY_WOW64_32KEY : 0));
    return OfValue({error, std::nullopt, L"a key"}, L"absent");
}

RegistrySetting StoredBitmask(const std::wstring& valueName) {
    return {.root = HKEY_LOCAL_MACHINE,
            .keyPath = HardwareBitmaskKey,
            .valueName = valueName,
            .type = REG_DWORD};
}

// Fills in the platform's records of all adapters, if any. Returns its error code.
DWORD QueryAdapters(std::vector<std::byte>& adapters) {
    // From the system directory only, as in a run.
    const Utils::Library library(
        ::LoadLibraryExW(L"iphlpapi.dll", /*hFile=*/nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    const auto getAdaptersAddresses = Utils::FindFunction<decltype(::GetAdaptersAddresses)>(
        library.Get(), "GetAdaptersAddresses");
    if (getAdaptersAddresses == nullptr) {
        return ERROR_PROC_NOT_FOUND;
    }
    DWORD error = ERROR_BUFFER_OVERFLOW;
    ULONG size = 0;
    for (int query = 0; error == ERROR_BUFFER_OVERFLOW && query < MostQueries; ++query) {
        adapters.resize(size);
        error = getAdaptersAddresses(
            AF_UNSPEC, GAA_FLAG_INCLUDE_ALL_INTERFACES,
            /*Reserved=*/nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(adapters.data()), &size);
    }
    if (error != ERROR_SUCCESS) {
        adapters.clear();
    }
    return error == ERROR_NO_DATA ? ERROR_SUCCESS : error;
}

// Matches as a run does, but logs nothing.
std::uint32_t MaskOf(std::wstring description, std::span<const AdapterPattern> patterns) {
    ToLowerInPlace(description);
    const auto pattern = std::ranges::find_if(patterns, [&](const AdapterPattern& each) {
        return RegexMatchesWhole(each.pattern, description);
    });
    return pattern == patterns.end() ? 0 : pattern->mask;
}

Finding OfBitmask(const StoredValue& stored, std::uint32_t expected) {
    return OfValue(stored, std::to_wstring(expected));
}

}  // namespace

Rows CheckDeleted(std::span<const RegistrySetting> settings) {
    Rows rows;
    for (const RegistrySetting& setting : settings) {
        if (setting.root == nullptr) {
            continue;
        }
        if (setting.valueName.empty()) {
            rows.push_back({Kind, SettingKeyText(setting), L"absent", OfKey(setting)});
        } else {
            rows.push_back(
                {Kind, SettingKeyText(setting), L"absent", OfValue(ReadValue(setting), L"absent")});
        }
    }
    return rows;
}

Rows CheckWritten(std::span<const RegistrySetting> settings) {
    Rows rows;
    for (const RegistrySetting& setting : settings) {
        if (setting.root != nullptr && (setting.type == REG_SZ || setting.type == REG_DWORD)) {
            std::wstring expected =
                setting.type == REG_SZ ? InQuotes(setting.text) : std::to_wstring(setting.number);
            Finding finding = OfValue(ReadValue(setting), expected);
            rows.push_back(
                {Kind, SettingKeyText(setting), std::move(expected), std::move(finding)});
        }
    }
    return rows;
}

Rows CheckBitmask(const std::wstring& gateValueName, const std::wstring& resultValueName,
                  std::span<const AdapterPattern> patterns) {
    const RegistrySetting bitmask = StoredBitmask(resultValueName);
    Rows rows;
    rows.push_back({Kind, SettingKeyText(bitmask), L"", {}});
    Row& row = rows.front();
    const StoredValue gate = ReadValue(
        {.root = HKEY_LOCAL_MACHINE, .keyPath = ServiceParametersKey, .valueName = gateValueName});
    if (gate.error != ERROR_SUCCESS && gate.error != ERROR_FILE_NOT_FOUND) {
        row.expected = L"as " + gateValueName + L" says";
        row.finding = CannotTell(static_cast<DWORD>(gate.error));
        return rows;
    }
    std::uint32_t expected = gate.number.value_or(MatchTheAdapters);
    if (expected == MatchTheAdapters) {
        std::vector<std::byte> adapters;
        if (const DWORD error = QueryAdapters(adapters); error != ERROR_SUCCESS) {
            row.expected = L"that of the adapters";
            row.finding = CannotTell(L"the network adapters: " + ErrorText(error));
            return rows;
        }
        expected = 0;
        for (const std::wstring& description : ListPresentAdapterDescriptions(adapters)) {
            expected |= MaskOf(description, patterns);
        }
    }
    row.expected = std::to_wstring(expected);
    row.finding = OfBitmask(ReadValue(bitmask), expected);
    return rows;
}

Rows CheckFeatures(std::span<const FeatureRule> rules, const std::wstring& resultValueName) {
    const StoredValue bitmask = ReadValue(StoredBitmask(resultValueName));
    Rows rows;
    for (const FeatureRule& rule : rules) {
        if (bitmask.number) {
            const bool set = (rule.mask & *bitmask.number) != 0;
            Append(rows, CheckWritten({set ? &rule.whenSet : &rule.whenClear, 1}));
            continue;
        }
        const RegistrySetting& either =
            rule.whenSet.root != nullptr ? rule.whenSet : rule.whenClear;
        if (either.root != nullptr) {
            rows.push_back({Kind, SettingKeyText(either), L"as the stored bitmask says",
                            CannotTell(L"there is no bitmask to go by")});
        }
    }
    return rows;
}

}  // namespace verify
