#pragma once

#include "registry/registry_setting.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace test {

// All fields in the order of the record.
inline auto Fields(const RegistrySetting& setting) {
    return std::tuple(setting.root, setting.keyPath, setting.valueName, setting.view32,
                      setting.type, setting.number, setting.text);
}

// Values of HKEY_LOCAL_MACHINE\Software\a, with garbage in the field that must not be used.

inline RegistrySetting TextSetting(const std::wstring& name, const std::wstring& text) {
    return {.root = HKEY_LOCAL_MACHINE,
            .keyPath = L"Software\\a",
            .valueName = name,
            .type = REG_SZ,
            .number = 99,
            .text = text};
}

inline RegistrySetting NumberSetting(const std::wstring& name, std::uint32_t number) {
    return {.root = HKEY_LOCAL_MACHINE,
            .keyPath = L"Software\\a",
            .valueName = name,
            .type = REG_DWORD,
            .number = number,
            .text = L"not this"};
}

}  // namespace test
