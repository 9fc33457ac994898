#include "registry/registry_key.h"

#include "shared/find_function.h"

#include <utility>

namespace Utils {

namespace {

constexpr REGSAM ViewMask = KEY_WOW64_64KEY | KEY_WOW64_32KEY;
constexpr DWORD KeyNameCapacity = 256;  // a key's name has at most 255 characters
constexpr int RegistryLevels = 512;     // the registry makes no deeper trees

// A function that not every system has, or null.
template <typename Function>
Function* FindAdvapiFunction(const char* name) {
    return FindFunction<Function>(::GetModuleHandleW(L"Advapi32.dll"), name);
}

}  // namespace

LSTATUS RegistryKey::Open(HKEY parent, const std::wstring& path, REGSAM access) {
    HKEY opened = nullptr;
    LSTATUS error = ERROR_INVALID_FUNCTION;
    if (const HANDLE transaction = TransactionHandle(); transaction != nullptr) {
        const auto open =
            FindAdvapiFunction<decltype(::RegOpenKeyTransactedW)>("RegOpenKeyTransactedW");
        if (open != nullptr) {
            error = open(parent, path.c_str(), /*ulOptions=*/0, access, &opened, transaction,
                         /*pExtendedParemeter=*/nullptr);
        }
    } else if (PlainAllowed()) {
        error = ::RegOpenKeyExW(parent, path.c_str(), /*ulOptions=*/0, access, &opened);
    }
    return error == ERROR_SUCCESS ? Adopt(opened, access) : error;
}

LSTATUS RegistryKey::CreateOrOpen(HKEY parent, const std::wstring& path, REGSAM access) {
    HKEY opened = nullptr;
    DWORD disposition = 0;
    LSTATUS error = ERROR_INVALID_FUNCTION;
    if (const HANDLE transaction = TransactionHandle(); transaction != nullptr) {
        const auto create =
            FindAdvapiFunction<decltype(::RegCreateKeyTransactedW)>("RegCreateKeyTransactedW");
        if (create != nullptr) {
            error = create(parent, path.c_str(), /*Reserved=*/0, /*lpClass=*/nullptr,
                           REG_OPTION_NON_VOLATILE, access, /*lpSecurityAttributes=*/nullptr,
                           &opened, &disposition, transaction,
                           /*pExtendedParemeter=*/nullptr);
        }
    } else if (PlainAllowed()) {
        error = ::RegCreateKeyExW(parent, path.c_str(), /*Reserved=*/0, /*lpClass=*/nullptr,
                                  REG_OPTION_NON_VOLATILE, access,
                                  /*lpSecurityAttributes=*/nullptr, &opened, &disposition);
    }
    return error == ERROR_SUCCESS ? Adopt(opened, access) : error;
}

LSTATUS RegistryKey::Adopt(HKEY handle, REGSAM access) {
    const LSTATUS closed = Close();
    handle_ = handle;
    viewFlags_ = access & ViewMask;
    return closed;
}

LSTATUS RegistryKey::Close() {
    viewFlags_ = 0;
    const HKEY handle = std::exchange(handle_, nullptr);
    return handle == nullptr ? ERROR_SUCCESS : ::RegCloseKey(handle);
}

LSTATUS RegistryKey::RecurseDeleteKey(const std::wstring& name) {
    return DeleteTree(name, RegistryLevels);
}

LSTATUS RegistryKey::DeleteTree(const std::wstring& name, int levelsBelow) {
    RegistryKey child(transaction_);
    LSTATUS error = child.Open(handle_, name, KEY_READ | KEY_WRITE | viewFlags_);
    if (error != ERROR_SUCCESS) {
        return error;
    }
    for (;;) {
        // Always index 0: each deletion moves the remaining sub-keys down.
        wchar_t subKey[KeyNameCapacity] = {};
        DWORD length = KeyNameCapacity;
        error = ::RegEnumKeyExW(child.handle_, 0, subKey, &length, /*lpReserved=*/nullptr,
                                /*lpClass=*/nullptr, /*lpcchClass=*/nullptr,
                                /*lpftLastWriteTime=*/nullptr);
        if (error == ERROR_NO_MORE_ITEMS) {
            break;
        }
        if (error == ERROR_SUCCESS) {
            // This would never end otherwise: an empty name is this key again, as is a stored name
            // that begins with a zero, and a link may lead back up the tree.
            const bool damaged = subKey[0] == L'\0' || levelsBelow == 0;
            error = ERROR_INVALID_DATA;
            if (!damaged) {
                error = child.DeleteTree(subKey, levelsBelow - 1);
            }
        }
        if (error != ERROR_SUCCESS) {
            return error;
        }
    }
    child.Close();
    return DeleteSubKey(name);
}

LSTATUS RegistryKey::DeleteSubKey(const std::wstring& name) {
    if (const HANDLE transaction = TransactionHandle(); transaction != nullptr) {
        const auto deleteTransacted =
            FindAdvapiFunction<decltype(::RegDeleteKeyTransactedW)>("RegDeleteKeyTransactedW");
        return deleteTransacted == nullptr
                   ? ERROR_INVALID_FUNCTION
                   : deleteTransacted(handle_, name.c_str(), /*samDesired=*/0, /*Reserved=*/0,
                                      transaction, /*pExtendedParameter=*/nullptr);
    }
    if (transaction_ != nullptr) {
        return PlainAllowed() ? ::RegDeleteKeyW(handle_, name.c_str()) : ERROR_INVALID_FUNCTION;
    }
    static const auto deleteKeyEx =
        FindAdvapiFunction<decltype(::RegDeleteKeyExW)>("RegDeleteKeyExW");
    return deleteKeyEx == nullptr ? ::RegDeleteKeyW(handle_, name.c_str())
                                  : deleteKeyEx(handle_, name.c_str(), viewFlags_, /*Reserved=*/0);
}

}  // namespace Utils
