#pragma once

#include <windows.h>

#include <string>

namespace Utils {

// What a key object may work within. With a handle, keys are opened, created and deleted in that
// kernel transaction. Without one, they are accessed without a transaction if that is allowed, or
// not at all. The creator keeps the handle. No step uses this; it is kept on purpose.
struct RegistryTransaction {
    HANDLE handle = nullptr;
    bool plainAllowed = false;
};

// Owns one open registry key. Errors are Win32 codes, 0 for success; the platform's are returned
// unchanged. ERROR_INVALID_FUNCTION means a transacted call that this system lacks, or one that the
// transaction does not allow.
class RegistryKey {
public:
    // No key is open at first. The transaction, if any, must outlive the object.
    explicit RegistryKey(const RegistryTransaction* transaction = nullptr) noexcept
        : transaction_(transaction) {}
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    ~RegistryKey() { Close(); }

    // Open `path` below `parent`; CreateOrOpen creates missing keys. On success the previously open
    // key is closed, and the result is that close's; on failure nothing changes.
    LSTATUS Open(HKEY parent, const std::wstring& path, REGSAM access);
    LSTATUS CreateOrOpen(HKEY parent, const std::wstring& path, REGSAM access);

    LSTATUS Close();

    [[nodiscard]] HKEY Get() const noexcept { return handle_; }

    // The view bits (KEY_WOW64_32KEY, KEY_WOW64_64KEY) with which the key was opened.
    [[nodiscard]] REGSAM ViewFlags() const noexcept { return viewFlags_; }

    // Deletes the sub-key `name` with everything below it; with an empty name, the open key itself.
    // Stops at the first error; what was deleted before stays deleted. A damaged registry is an
    // error (ERROR_INVALID_DATA): a sub-key that seems to have no name, or more levels than a
    // registry can have.
    LSTATUS RecurseDeleteKey(const std::wstring& name);

private:
    // Null without one.
    [[nodiscard]] HANDLE TransactionHandle() const noexcept {
        return transaction_ != nullptr ? transaction_->handle : nullptr;
    }
    [[nodiscard]] bool PlainAllowed() const noexcept {
        return transaction_ == nullptr || transaction_->plainAllowed;
    }
    LSTATUS Adopt(HKEY handle, REGSAM access);
    LSTATUS DeleteTree(const std::wstring& name, int levelsBelow);
    LSTATUS DeleteSubKey(const std::wstring& name);

    HKEY handle_ = nullptr;
    REGSAM viewFlags_ = 0;
    const RegistryTransaction* transaction_;
};

}  // namespace Utils
