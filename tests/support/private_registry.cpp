#include "support/private_registry.h"

#include "support/native_keys.h"

#include <stdexcept>
#include <string>

namespace test {

namespace {

constexpr wchar_t RootsPath[] = L"Software\\FinasetTests";

std::wstring RootPath() {
    return std::wstring(RootsPath) + L"\\" + std::to_wstring(::GetCurrentProcessId());
}

}  // namespace

PrivateRegistry::PrivateRegistry() {
    ::RegDeleteTreeW(HKEY_CURRENT_USER, RootPath().c_str());
    if (::RegCreateKeyExW(HKEY_CURRENT_USER, RootPath().c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                          nullptr, &root_, nullptr) != ERROR_SUCCESS ||
        ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_) != ERROR_SUCCESS) {
        throw std::runtime_error("no private registry root can be made");
    }
}

PrivateRegistry::~PrivateRegistry() {
    ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RemoveNativeTree(root_);  // with half the calls of RegDeleteTreeW
    ::RegCloseKey(root_);
    ::RegDeleteKeyW(HKEY_CURRENT_USER, RootsPath);  // fails while another process has a root
}

}  // namespace test
