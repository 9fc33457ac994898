#pragma once

#include <windows.h>

#include <string>

namespace Utils {

// What a key object may be told to work within. With a handle, keys are opened, created and deleted
// in that kernel transaction. Without one, they are reached plainly if that is allowed, or not at
// all. The handle stays its creator's. No step works within one yet it is kept: meant.
struct RegistryTransaction {
    HANDLE handle = nullptr;
    bool plainAllowed = false;
};

// Owns one open registry key. Errors are Win32 codes, 0 for success; those of the platform are
// passed on as they are. ERROR_INVALID_FUNCTION stands for a transacted call that this system has
// not, or for one that the transaction does not allow.
class RegistryKey {
public:
    // Nothing is open at first. The transaction, if any, must outlive the object.
    explicit RegistryKey(const RegistryTransaction* transaction = nullptr) noexcept
        : transaction_(transaction) {}
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    ~RegistryKey() { Close(); }

    // Open `path` below `parent`; CreateOrOpen creates the keys that are missing. On success the
    // key that was open before is closed, and the result is that close's; on failure nothing
    // changes.
    LSTATUS Open(HKEY parent, const std::wstring& path, REGSAM access);
    LSTATUS CreateOrOpen(HKEY parent, const std::wstring& path, REGSAM access);

    LSTATUS Close();

    [[nodiscard]] HKEY Get() const noexcept { return handle_; }

    // The view bits (KEY_WOW64_32KEY, KEY_WOW64_64KEY) with which the key was opened.
    [[nodiscard]] REGSAM ViewFlags() const noexcept { return viewFlags_; }

    // Removes the sub-key `name` with all that is below it; with an empty name, the open key
    // itself. Ends at the first error, and what was removed until then is gone. A damaged registry
    // is one (ERROR_INVALID_DATA): a sub-key that seems to have no name, or more levels than a
    // registry has.
    LSTATUS RecurseDeleteKey(const std::wstring& name);

private:
    [[nodiscard]] bool Transacted() const noexcept {
        return transaction_ != nullptr && transaction_->handle != nullptr;
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
