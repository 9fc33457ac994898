#pragma once

#include "shared/owner.h"

#include <windows.h>

#include <oaidl.h>

#include <exception>
#include <optional>
#include <string>

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

template <typename Interface>
using ComPointer = Owner<ComPointerPolicy<Interface>>;
using ComString = Owner<ComStringPolicy>;

// A COM call that has failed, with what can be said of it.
class ComError : public std::exception {
public:
    // Without a description.
    explicit ComError(HRESULT result);

    // With the description that `source` left for a failed method of its interface `iid`, if it
    // does leave such; this takes it from the thread.
    ComError(HRESULT result, IUnknown& source, REFIID iid);

    [[nodiscard]] HRESULT Result() const noexcept { return result_; }

    // What the failing object says, or null.
    [[nodiscard]] const wchar_t* Description() const noexcept {
        return description_ ? description_->c_str() : nullptr;
    }

    // The system's message for the result without its line end, or one made of the number.
    [[nodiscard]] const wchar_t* MessageText() const noexcept { return messageText_.c_str(); }

private:
    HRESULT result_;
    std::optional<std::wstring> description_;
    std::wstring messageText_;
};

// Throws ComError if `source` has failed.
template <typename Interface>
void Check(HRESULT result, Interface& source) {
    if (FAILED(result)) {
        throw ComError(result, source, __uuidof(Interface));
    }
}

// The object behind the pointer. Throws ComError with E_POINTER if there is none.
template <typename Interface>
Interface& Existing(const ComPointer<Interface>& pointer) {
    if (!pointer) {
        throw ComError(E_POINTER);
    }
    return *pointer.Get();
}

// The text in COM's own form. Throws ComError with E_OUTOFMEMORY if there is no memory for it.
ComString MakeComString(const std::wstring& text);

}  // namespace Utils
