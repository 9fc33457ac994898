#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace test {

// The registry as the tests prepare and inspect it, in the default view unless `view` says
// otherwise. Unexpected failures throw.

// The key of the product's settings. Not inline, on purpose: see log_texts.h.
const std::wstring ParametersKey =
    L"SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network Service\\Parameters";

struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> bytes;

    bool operator==(const RegistryValue&) const = default;
};

// The bytes of a text, without a terminating zero.
std::vector<BYTE> TextBytes(const std::wstring& text);

// A value of the text and its terminating zero.
RegistryValue TextValue(const std::wstring& text, DWORD type = REG_SZ);

RegistryValue DwordValue(DWORD number);

void MakeKey(HKEY root, const std::wstring& path, REGSAM view = 0);
bool KeyExists(HKEY root, const std::wstring& path, REGSAM view = 0);

// How many keys are directly below one.
DWORD SubKeyCount(HKEY root, const std::wstring& path);

// Writes exactly these bytes, and the key if it is missing.
void PutValue(HKEY root, const std::wstring& path, const std::wstring& name,
              const RegistryValue& value, REGSAM view = 0);

// Nothing if the key or value does not exist.
std::optional<RegistryValue> ValueOf(HKEY root, const std::wstring& path, const std::wstring& name,
                                     REGSAM view = 0);

}  // namespace test
