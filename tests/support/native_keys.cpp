#include "support/native_keys.h"

#include "shared/find_function.h"

#include <winternl.h>

#include <cstddef>
#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

namespace test {

namespace {

using CreateKey = NTSTATUS NTAPI(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, ULONG titleIndex,
                                 UNICODE_STRING* keyClass, ULONG options, ULONG* disposition);
using OpenKey = NTSTATUS NTAPI(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*);
using EnumerateKey = NTSTATUS NTAPI(HANDLE, ULONG index, int informationClass, void* information,
                                    ULONG length, ULONG* resultLength);
using QueryKey = NTSTATUS NTAPI(HANDLE, int informationClass, void* information, ULONG length,
                                ULONG* resultLength);
using DeleteKey = NTSTATUS NTAPI(HANDLE);

constexpr ULONG OpenTheLink = 0x100;  // not its target

template <typename Function>
Function& Native(const char* name) {
    return *Utils::FindFunction<Function>(::GetModuleHandleW(L"ntdll.dll"), name);
}

void Demand(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

// The name of a key below another, for the native functions.
class Named {
public:
    Named(HKEY parent, const std::wstring& name, ULONG attributes) {
        name_.Buffer = const_cast<wchar_t*>(name.data());
        name_.Length = name_.MaximumLength = static_cast<USHORT>(name.size() * sizeof(wchar_t));
        attributes_.Length = sizeof(attributes_);
        attributes_.RootDirectory = parent;
        attributes_.ObjectName = &name_;
        attributes_.Attributes = attributes;
    }
    Named(const Named&) = delete;
    Named& operator=(const Named&) = delete;

    OBJECT_ATTRIBUTES* Get() { return &attributes_; }

private:
    UNICODE_STRING name_ = {};
    OBJECT_ATTRIBUTES attributes_ = {};
};

// The text at the end of a key's information, after its length.
std::wstring TextAt(const std::vector<std::byte>& information, std::size_t lengthOffset) {
    const auto bytes = *reinterpret_cast<const ULONG*>(information.data() + lengthOffset);
    const auto* text =
        reinterpret_cast<const wchar_t*>(information.data() + lengthOffset + sizeof(ULONG));
    return {text, bytes / sizeof(wchar_t)};
}

std::wstring PathOf(HKEY key) {
    constexpr int NameInformation = 3;
    std::vector<std::byte> information(0x10000);
    ULONG length = 0;
    Demand(Native<QueryKey>("NtQueryKey")(key, NameInformation, information.data(),
                                          static_cast<ULONG>(information.size()), &length) == 0,
           "a key does not tell its path");
    return TextAt(information, 0);
}

// Says whether it could.
bool RemoveTree(HKEY key) {
    constexpr int BasicInformation = 0;
    constexpr std::size_t NameOffset = 12;  // after the last write time and an index
    static EnumerateKey& enumerate = Native<EnumerateKey>("NtEnumerateKey");
    static OpenKey& open = Native<OpenKey>("NtOpenKey");
    static DeleteKey& deleteKey = Native<DeleteKey>("NtDeleteKey");
    std::vector<std::byte> information(0x1000);
    ULONG length = 0;
    while (enumerate(key, 0, BasicInformation, information.data(),
                     static_cast<ULONG>(information.size()), &length) == 0) {
        const std::wstring name = TextAt(information, NameOffset);
        Named named(key, name, OBJ_CASE_INSENSITIVE | OpenTheLink);
        HANDLE child = nullptr;
        if (open(&child, KEY_ALL_ACCESS, named.Get()) != 0) {
            return false;
        }
        const bool removed = RemoveTree(static_cast<HKEY>(child));
        ::RegCloseKey(static_cast<HKEY>(child));
        if (!removed) {
            return false;
        }
    }
    return deleteKey(key) == 0;
}

}  // namespace

HKEY MakeNativeKey(HKEY parent, const std::wstring& name) {
    Named named(parent, name, OBJ_CASE_INSENSITIVE);
    HANDLE key = nullptr;
    Demand(Native<CreateKey>("NtCreateKey")(&key, KEY_ALL_ACCESS, named.Get(), 0, nullptr, 0,
                                            nullptr) == 0,
           "a key cannot be made");
    return static_cast<HKEY>(key);
}

void MakeLinkedKey(HKEY parent, const std::wstring& name, HKEY target) {
    const std::wstring path = PathOf(target);
    HKEY link = nullptr;
    Demand(::RegCreateKeyExW(parent, name.c_str(), 0, nullptr,
                             REG_OPTION_CREATE_LINK | REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                             &link, nullptr) == ERROR_SUCCESS,
           "a link cannot be made");
    const LSTATUS set = ::RegSetValueExW(link, L"SymbolicLinkValue", 0, REG_LINK,
                                         reinterpret_cast<const BYTE*>(path.data()),
                                         static_cast<DWORD>(path.size() * sizeof(wchar_t)));
    ::RegCloseKey(link);
    Demand(set == ERROR_SUCCESS, "a link cannot be led");
}

void RemoveNativeTree(HKEY key) {
    EXPECT_TRUE(RemoveTree(key)) << "a damaged key cannot be removed";
}

}  // namespace test
