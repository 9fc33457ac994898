#include "registry/registry_setting.h"

#include "registry/registry_key.h"

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <utility>
#include <vector>

namespace {

// The names of the predefined roots.
const std::pair<HKEY, const wchar_t*> HiveNames[] = {
    {HKEY_CLASSES_ROOT, L"HKEY_CLASSES_ROOT"},
    {HKEY_CURRENT_USER, L"HKEY_CURRENT_USER"},
    {HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE"},
    {HKEY_USERS, L"HKEY_USERS"},
    {HKEY_PERFORMANCE_DATA, L"HKEY_PERFORMANCE_DATA"},
    {HKEY_PERFORMANCE_TEXT, L"HKEY_PERFORMANCE_TEXT"},
    {HKEY_PERFORMANCE_NLSTEXT, L"HKEY_PERFORMANCE_NLSTEXT"},
    {HKEY_CURRENT_CONFIG, L"HKEY_CURRENT_CONFIG"},
    {HKEY_DYN_DATA, L"HKEY_DYN_DATA"},
    {HKEY_CURRENT_USER_LOCAL_SETTINGS, L"HKEY_CURRENT_USER_LOCAL_SETTINGS"},
};

constexpr REGSAM WriteAccess(bool view32) {
    return KEY_WRITE | (view32 ? KEY_WOW64_32KEY : 0);
}

bool SetValue(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, DWORD type,
              const void* data, std::size_t bytes, bool view32) {
    Utils::RegistryKey key;
    if (key.CreateOrOpen(root, keyPath, WriteAccess(view32)) != ERROR_SUCCESS) {
        return false;
    }
    return data != nullptr && ::RegSetValueExW(key.Get(), valueName.c_str(), /*Reserved=*/0, type,
                                               static_cast<const BYTE*>(data),
                                               static_cast<DWORD>(bytes)) == ERROR_SUCCESS;
}

}  // namespace

std::uint32_t GetDwordWithDefault(HKEY /*root*/, const std::wstring& keyPath,
                                  const std::wstring& valueName, std::uint32_t defaultValue) {
    Utils::RegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, keyPath, KEY_READ) != ERROR_SUCCESS) {
        return defaultValue;
    }
    DWORD type = REG_NONE;
    std::uint32_t value = 0;
    DWORD bytes = sizeof(value);
    const LSTATUS error = ::RegQueryValueExW(key.Get(), valueName.c_str(), /*lpReserved=*/nullptr,
                                             &type, reinterpret_cast<BYTE*>(&value), &bytes);
    const bool valid = error == ERROR_SUCCESS && type == REG_DWORD && bytes == sizeof(value);
    return valid ? value : defaultValue;
}

LSTATUS GetStringSetting(HKEY /*root*/, const std::wstring& keyPath, const std::wstring& valueName,
                         std::wstring& out) {
    Utils::RegistryKey key;
    LSTATUS error = key.Open(HKEY_LOCAL_MACHINE, keyPath, KEY_READ);
    if (error != ERROR_SUCCESS) {
        return error;
    }

    DWORD bytes = 0;
    error = ::RegQueryValueExW(key.Get(), valueName.c_str(), /*lpReserved=*/nullptr,
                               /*lpType=*/nullptr, /*lpData=*/nullptr, &bytes);
    if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) {
        bytes = 0;  // the second query returns the reason
    }

    // Never without a buffer: such a query succeeds and reads nothing.
    std::vector<wchar_t> buffer(std::max<std::size_t>(1, (bytes + 1) / sizeof(wchar_t)));
    DWORD type = REG_NONE;
    bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    error = ::RegQueryValueExW(key.Get(), valueName.c_str(), /*lpReserved=*/nullptr, &type,
                               reinterpret_cast<BYTE*>(buffer.data()), &bytes);
    if (error != ERROR_SUCCESS) {
        return error;
    }
    if (type != REG_SZ && type != REG_EXPAND_SZ) {
        return ERROR_INVALID_DATA;
    }
    if (bytes == 0) {
        return ERROR_SUCCESS;
    }
    if (bytes % sizeof(wchar_t) != 0 || buffer[bytes / sizeof(wchar_t) - 1] != L'\0') {
        return ERROR_INVALID_DATA;
    }
    out = buffer.data();
    return ERROR_SUCCESS;
}

bool SetDwordSetting(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                     std::uint32_t value, bool view32) {
    return SetValue(root, keyPath, valueName, REG_DWORD, &value, sizeof(value), view32);
}

bool SetStringSetting(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                      const wchar_t* text, bool view32) {
    const std::size_t bytes =
        text == nullptr ? 0 : (std::wcslen(text) + 1) * sizeof(wchar_t);  // with its zero
    return SetValue(root, keyPath, valueName, REG_SZ, text, bytes, view32);
}

bool WriteSetting(const RegistrySetting& setting) {
    if (setting.root == nullptr) {
        return false;
    }
    switch (setting.type) {
        case REG_SZ:
            return SetStringSetting(setting.root, setting.keyPath, setting.valueName,
                                    setting.text.c_str(), setting.view32);
        case REG_DWORD:
            return SetDwordSetting(setting.root, setting.keyPath, setting.valueName, setting.number,
                                   setting.view32);
        default:
            return false;
    }
}

bool DeleteSetting(const RegistrySetting& setting) {
    if (setting.root == nullptr) {
        return false;
    }
    Utils::RegistryKey key;
    // Created if it is missing, before anything is deleted, on purpose.
    if (key.CreateOrOpen(setting.root, setting.keyPath, WriteAccess(setting.view32)) !=
        ERROR_SUCCESS) {
        return false;
    }
    if (setting.valueName.empty()) {
        return key.RecurseDeleteKey(L"") == ERROR_SUCCESS;
    }
    return ::RegDeleteValueW(key.Get(), setting.valueName.c_str()) == ERROR_SUCCESS;
}

std::wstring SettingKeyText(const RegistrySetting& setting) {
    std::wstring text = setting.view32 ? L"32Bit Registry Hive - " : L"";
    for (const auto& [root, name] : HiveNames) {
        if (root == setting.root) {
            text += name;
        }
    }
    return text + L"\\" + setting.keyPath + L"\\" + setting.valueName;
}

std::wstring SettingDisplayText(const RegistrySetting& setting) {
    std::wstring text = SettingKeyText(setting);
    switch (setting.type) {
        case REG_SZ:
            return text + L"=" + setting.text;
        case REG_DWORD:
            return text + L"=" + std::to_wstring(setting.number);
        default:
            return text;
    }
}
