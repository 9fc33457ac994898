#pragma once

#include <windows.h>

#include <utility>

namespace Utils {

// Owns one handle and releases it at the end of the scope. A policy names the handle's type, the
// value for "none" and the release call. Releasing preserves the thread's last error, so that an
// owner may go out of scope between a failed call and GetLastError.
template <typename Policy>
class Owner {
public:
    using Handle = typename Policy::Handle;

    Owner() noexcept = default;
    explicit Owner(Handle handle) noexcept : handle_(handle) {}
    Owner(Owner&& other) noexcept : handle_(std::exchange(other.handle_, Policy::None)) {}
    Owner& operator=(Owner&&) = delete;
    ~Owner() {
        if (handle_ == Policy::None) {
            return;
        }
        const DWORD lastError = ::GetLastError();
        Policy::Release(handle_);
        ::SetLastError(lastError);
    }

    [[nodiscard]] Handle Get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != Policy::None; }

private:
    Handle handle_ = Policy::None;
};

struct KernelHandlePolicy {
    using Handle = HANDLE;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::CloseHandle(handle); }
};

struct ServiceHandlePolicy {
    using Handle = SC_HANDLE;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::CloseServiceHandle(handle); }
};

struct FileHandlePolicy {
    using Handle = HANDLE;
    static inline const HANDLE None = INVALID_HANDLE_VALUE;
    static void Release(Handle handle) noexcept { ::CloseHandle(handle); }
};

struct SearchHandlePolicy {
    using Handle = HANDLE;
    static inline const HANDLE None = INVALID_HANDLE_VALUE;
    static void Release(Handle handle) noexcept { ::FindClose(handle); }
};

struct EventSourcePolicy {
    using Handle = HANDLE;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::DeregisterEventSource(handle); }
};

struct LibraryPolicy {
    using Handle = HMODULE;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::FreeLibrary(handle); }
};

using KernelHandle = Owner<KernelHandlePolicy>;    // process, thread, token
using ServiceHandle = Owner<ServiceHandlePolicy>;  // service manager, service
using FileHandle = Owner<FileHandlePolicy>;
using SearchHandle = Owner<SearchHandlePolicy>;
using EventSource = Owner<EventSourcePolicy>;
using Library = Owner<LibraryPolicy>;

}  // namespace Utils
