#pragma once

#include "shared/owner.h"

#include <windows.h>

#include <oaidl.h>
#include <oleauto.h>

#include <array>
#include <cstddef>
#include <optional>

namespace Utils {

template <typename Interface>
struct ComPointerPolicy {
    using Handle = Interface*;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { handle->Release(); }
};

struct ComStringPolicy {
    using Handle = BSTR;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::SysFreeString(handle); }
};

struct LocalTextPolicy {
    using Handle = wchar_t*;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::LocalFree(handle); }
};

template <typename Interface>
using ComPointer = Owner<ComPointerPolicy<Interface>>;
using ComString = Owner<ComStringPolicy>;
using LocalText = Owner<LocalTextPolicy>;

// Room for a text that is made of the number of an error.
constexpr std::size_t ComErrorNumberLength = 32;
using ComErrorNumber = std::array<wchar_t, ComErrorNumberLength>;

// A COM call that has failed, with what can be said of it. It is kept, not thrown, and needs no
// memory of the program's own: want of memory is what it may be about, and the compiler's library
// needs some to throw.
class ComError {
public:
    // Without a description.
    explicit ComError(HRESULT result);

    // With the description that `source` left for a failed method of its interface `iid`, if it
    // does leave such; this takes it from the thread.
    ComError(HRESULT result, IUnknown& source, REFIID iid);

    [[nodiscard]] HRESULT Result() const noexcept { return result_; }

    // What the failing object says, or null.
    [[nodiscard]] const wchar_t* Description() const noexcept { return description_.Get(); }

    // The system's message for the result without its line end, or one made of the number.
    [[nodiscard]] const wchar_t* MessageText() const noexcept {
        return systemText_ ? systemText_.Get() : numberText_.data();
    }

private:
    HRESULT result_;
    LocalText systemText_;
    ComErrorNumber numberText_;
    ComString description_;
};

// Whether a call to `source` has succeeded. Its failure becomes the error.
template <typename Interface>
bool Check(HRESULT result, Interface& source, std::optional<ComError>& error) {
    if (FAILED(result)) {
        error.emplace(result, source, __uuidof(Interface));
    }
    return SUCCEEDED(result);
}

// Whether there is an object. E_POINTER becomes the error if there is none.
template <typename Interface>
bool Exists(const ComPointer<Interface>& object, std::optional<ComError>& error) {
    if (!object) {
        error.emplace(E_POINTER);
    }
    return static_cast<bool>(object);
}

// The text in COM's own form. None if there is no memory for it, and E_OUTOFMEMORY is the error.
ComString MakeComString(const wchar_t* text, std::optional<ComError>& error);

}  // namespace Utils
