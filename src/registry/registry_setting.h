#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

// One registry value to write, with its data, or to delete. A record with a null root does nothing;
// an empty value name in a record to delete means the whole key.
struct RegistrySetting {
    HKEY root = nullptr;
    std::wstring keyPath{};  // below the root, without a leading backslash
    std::wstring valueName{};
    bool view32 = false;     // the 32-bit view of the registry
    std::uint32_t type = 0;  // REG_SZ or REG_DWORD; selects the data field below
    std::uint32_t number = 0;
    std::wstring text{};
};

// Each operation below opens its key anew and closes it before it returns.

// The REG_DWORD value, or `defaultValue` if it cannot be read or has another type. Reads from
// HKEY_LOCAL_MACHINE whatever `root` says.
std::uint32_t GetDwordWithDefault(HKEY root, const std::wstring& keyPath,
                                  const std::wstring& valueName, std::uint32_t defaultValue);

// Reads a REG_SZ or REG_EXPAND_SZ value, unexpanded, up to its first zero. Returns a Win32 error
// code: 0 for success, ERROR_INVALID_DATA for a value of another type, of odd size or without a
// terminating zero. `out` changes only on success; a value of 0 bytes succeeds and leaves it
// unchanged. Reads from HKEY_LOCAL_MACHINE whatever `root` says.
LSTATUS GetStringSetting(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                         std::wstring& out);

// Write one value, creating missing keys. Return whether it was written; a null `text` is not. A
// text ends at its first zero, even if the string goes on after it.
bool SetDwordSetting(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                     std::uint32_t value, bool view32);
bool SetStringSetting(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                      const wchar_t* text, bool view32);

// Writes the record's value. Returns whether it was written: not if the record has no root, or a
// type that is neither of its two.
bool WriteSetting(const RegistrySetting& setting);

// Deletes the record's value, or the whole key if it names no value. Returns whether it did.
bool DeleteSetting(const RegistrySetting& setting);

// The record as the log shows it: hive, key path and value name; with "=" and the data behind it.
std::wstring SettingKeyText(const RegistrySetting& setting);
std::wstring SettingDisplayText(const RegistrySetting& setting);
