#include "support/registry_contents.h"

#include "registry/registry_key.h"

#include <cstring>
#include <stdexcept>

namespace test {

namespace {

void Require(LSTATUS error) {
    if (error != ERROR_SUCCESS) {
        throw std::runtime_error("the registry cannot be prepared, error " + std::to_string(error));
    }
}

}  // namespace

std::vector<BYTE> TextBytes(const std::wstring& text) {
    std::vector<BYTE> bytes(text.size() * sizeof(wchar_t));
    if (!bytes.empty()) {
        std::memcpy(bytes.data(), text.data(), bytes.size());
    }
    return bytes;
}

RegistryValue TextValue(const std::wstring& text, DWORD type) {
    return {type, TextBytes(text + L'\0')};
}

RegistryValue DwordValue(DWORD number) {
    RegistryValue value{REG_DWORD, std::vector<BYTE>(sizeof(number))};
    std::memcpy(value.bytes.data(), &number, sizeof(number));
    return value;
}

void MakeKey(HKEY root, const std::wstring& path, REGSAM view) {
    Utils::RegistryKey key;
    Require(key.CreateOrOpen(root, path, KEY_WRITE | view));
}

bool KeyExists(HKEY root, const std::wstring& path, REGSAM view) {
    Utils::RegistryKey key;
    return key.Open(root, path, KEY_READ | view) == ERROR_SUCCESS;
}

DWORD SubKeyCount(HKEY root, const std::wstring& path) {
    Utils::RegistryKey key;
    Require(key.Open(root, path, KEY_READ));
    DWORD count = 0;
    Require(::RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                               nullptr, nullptr, nullptr, nullptr, nullptr));
    return count;
}

void PutValue(HKEY root, const std::wstring& path, const std::wstring& name,
              const RegistryValue& value, REGSAM view) {
    Utils::RegistryKey key;
    Require(key.CreateOrOpen(root, path, KEY_WRITE | view));
    // If a text lacks its terminating zero, the platform adds one if it finds one after the data.
    std::vector<BYTE> bytes = value.bytes;
    bytes.insert(bytes.end(), 2 * sizeof(wchar_t), BYTE{0xEE});
    Require(::RegSetValueExW(key.Get(), name.c_str(), 0, value.type, bytes.data(),
                             static_cast<DWORD>(value.bytes.size())));
}

std::optional<RegistryValue> ValueOf(HKEY root, const std::wstring& path, const std::wstring& name,
                                     REGSAM view) {
    Utils::RegistryKey key;
    RegistryValue value;
    DWORD size = 0;
    if (key.Open(root, path, KEY_READ | view) != ERROR_SUCCESS ||
        ::RegQueryValueExW(key.Get(), name.c_str(), nullptr, &value.type, nullptr, &size) !=
            ERROR_SUCCESS) {
        return std::nullopt;
    }
    // Room for one more character: for a text of one byte, Wine writes a zero past the buffer.
    size += sizeof(wchar_t);
    value.bytes.resize(size);
    Require(
        ::RegQueryValueExW(key.Get(), name.c_str(), nullptr, nullptr, value.bytes.data(), &size));
    value.bytes.resize(size);
    return value;
}

}  // namespace test
