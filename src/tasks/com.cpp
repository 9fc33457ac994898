#include "tasks/com.h"

#include <cwchar>
#include <string_view>

namespace Utils {

namespace {

// The codes reserved for each interface's own errors.
constexpr HRESULT FirstInterfaceError = static_cast<HRESULT>(0x80040200);
constexpr HRESULT LastInterfaceError = static_cast<HRESULT>(0x8004FFFF);

// The system's message without its line end, or none.
LocalText SystemText(HRESULT result) {
    wchar_t* allocated = nullptr;
    // With this flag the function takes the address of a pointer instead of a buffer.
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        /*lpSource=*/nullptr, static_cast<DWORD>(result), MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL),
        reinterpret_cast<wchar_t*>(&allocated),
        /*nSize=*/0, /*Arguments=*/nullptr);
    if (length == 0) {
        return {};
    }
    if (std::wstring_view(allocated, length).ends_with(L"\r\n")) {
        allocated[length - 2] = L'\0';
    }
    return LocalText(allocated);
}

ComErrorNumber NumberText(HRESULT result) {
    ComErrorNumber text = {};
    if (result >= FirstInterfaceError && result <= LastInterfaceError) {
        std::swprintf(text.data(), text.size(), L"IDispatch error #%ld",
                      result - FirstInterfaceError);
    } else {
        std::swprintf(text.data(), text.size(), L"Unknown error 0x%0lX",
                      static_cast<unsigned long>(result));
    }
    return text;
}

ComString DescriptionLeftBy(IUnknown& source, REFIID iid) {
    ISupportErrorInfo* support = nullptr;
    if (FAILED(source.QueryInterface(__uuidof(ISupportErrorInfo),
                                     reinterpret_cast<void**>(&support)))) {
        return {};
    }
    // Without this answer, the thread's error object may come from an earlier failure.
    const ComPointer<ISupportErrorInfo> supportOwner(support);
    if (support->InterfaceSupportsErrorInfo(iid) != S_OK) {
        return {};
    }
    IErrorInfo* info = nullptr;
    if (::GetErrorInfo(/*dwReserved=*/0, &info) != S_OK) {
        return {};
    }
    const ComPointer<IErrorInfo> infoOwner(info);
    BSTR text = nullptr;
    const HRESULT described = info->GetDescription(&text);
    ComString description(text);
    if (FAILED(described)) {
        return {};
    }
    return description;
}

}  // namespace

ComError::ComError(HRESULT result)
    : result_(result), systemText_(SystemText(result)), numberText_(NumberText(result)) {}

ComError::ComError(HRESULT result, IUnknown& source, REFIID iid)
    : result_(result),
      systemText_(SystemText(result)),
      numberText_(NumberText(result)),
      description_(DescriptionLeftBy(source, iid)) {}

ComString MakeComString(const wchar_t* text, std::optional<ComError>& error) {
    ComString string(::SysAllocString(text));
    if (!string) {
        error.emplace(E_OUTOFMEMORY);
    }
    return string;
}

}  // namespace Utils
