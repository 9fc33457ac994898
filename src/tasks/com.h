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

// Room for a text made from an error number.
constexpr std::size_t ComErrorNumberLength = 32;
using ComErrorNumber = std::array<wchar_t, ComErrorNumberLength>;

// A failed COM call, with its description. It is kept, not thrown, and allocates nothing: it may
// report that the program is out of memory, and the compiler's library must allocate to throw.
class ComError {
public:
    // Without a description.
    explicit ComError(HRESULT result);

    // With the description that `source` left for a failed method of its interface `iid`, if it
    // supports that; this takes it from the thread.
    ComError(HRESULT result, IUnknown& source, REFIID iid);

    [[nodiscard]] HRESULT Result() const noexcept { return result_; }

    // The failing object's description, or null.
    [[nodiscard]] const wchar_t* Description() const noexcept { return description_.Get(); }

    // The system's message for the result without its line end, or one made from the number.
    [[nodiscard]] const wchar_t* MessageText() const noexcept {
        return systemText_ ? systemText_.Get() : numberText_.data();
    }

private:
    HRESULT result_;
    LocalText systemText_;
    ComErrorNumber numberText_;
    ComString description_;
};

// Whether a call to `source` succeeded. Sets the error if it failed.
template <typename Interface>
bool Check(HRESULT result, Interface& source, std::optional<ComError>& error) {
    if (FAILED(result)) {
        error.emplace(result, source, __uuidof(Interface));
    }
    return SUCCEEDED(result);
}

// Whether there is an object. Sets the error to E_POINTER if there is none.
template <typename Interface>
bool Exists(const ComPointer<Interface>& object, std::optional<ComError>& error) {
    if (!object) {
        error.emplace(E_POINTER);
    }
    return static_cast<bool>(object);
}

// The text as a BSTR. If out of memory, returns none and sets the error to E_OUTOFMEMORY.
ComString MakeComString(const wchar_t* text, std::optional<ComError>& error);

}  // namespace Utils
