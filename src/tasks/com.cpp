#include "tasks/com.h"

#include <oleauto.h>

#include <cwchar>
#include <iterator>
#include <string_view>

namespace Utils {

namespace {

// The codes that the interfaces of a library have for themselves.
constexpr HRESULT FirstInterfaceError = static_cast<HRESULT>(0x80040200);
constexpr HRESULT LastInterfaceError = static_cast<HRESULT>(0x8004FFFF);

struct LocalMemoryPolicy {
    using Handle = wchar_t*;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::LocalFree(handle); }
};

using LocalText = Owner<LocalMemoryPolicy>;

std::wstring MessageTextOf(HRESULT result) {
    wchar_t* allocated = nullptr;
    // With this flag the function takes the address of a pointer where it otherwise takes a buffer.
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        /*lpSource=*/nullptr, static_cast<DWORD>(result), MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL),
        reinterpret_cast<wchar_t*>(&allocated),
        /*nSize=*/0, /*Arguments=*/nullptr);
    const LocalText text(allocated);
    if (length != 0) {
        std::wstring_view message(allocated, length);
        if (message.ends_with(L"\r\n")) {
            message.remove_suffix(2);
        }
        return std::wstring(message);
    }
    if (result >= FirstInterfaceError && result <= LastInterfaceError) {
        return L"IDispatch error #" + std::to_wstring(result - FirstInterfaceError);
    }
    wchar_t unknown[] = L"Unknown error 0x00000000";
    std::swprintf(unknown, std::size(unknown), L"Unknown error 0x%0lX",
                  static_cast<unsigned long>(result));
    return unknown;
}

std::optional<std::wstring> DescriptionLeftBy(IUnknown& source, REFIID iid) {
    ISupportErrorInfo* support = nullptr;
    if (FAILED(source.QueryInterface(__uuidof(ISupportErrorInfo),
                                     reinterpret_cast<void**>(&support)))) {
        return std::nullopt;
    }
    // Without this answer, what the thread holds may be of an earlier failure.
    const ComPointer<ISupportErrorInfo> supportOwner(support);
    if (support->InterfaceSupportsErrorInfo(iid) != S_OK) {
        return std::nullopt;
    }
    IErrorInfo* info = nullptr;
    if (::GetErrorInfo(/*dwReserved=*/0, &info) != S_OK) {
        return std::nullopt;
    }
    const ComPointer<IErrorInfo> infoOwner(info);
    BSTR text = nullptr;
    const HRESULT described = info->GetDescription(&text);
    const ComString description(text);
    if (FAILED(described) || !description) {
        return std::nullopt;
    }
    return text;
}

}  // namespace

ComError::ComError(HRESULT result) : result_(result), messageText_(MessageTextOf(result)) {}

ComError::ComError(HRESULT result, IUnknown& source, REFIID iid) : ComError(result) {
    description_ = DescriptionLeftBy(source, iid);
}

ComString MakeComString(const std::wstring& text) {
    ComString string(::SysAllocString(text.c_str()));
    if (!string) {
        throw ComError(E_OUTOFMEMORY);
    }
    return string;
}

}  // namespace Utils
