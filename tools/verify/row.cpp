#include "verify/row.h"

#include <cwchar>
#include <iterator>
#include <string_view>
#include <utility>

namespace verify {

Finding Found(bool asExpected, std::wstring text) {
    return {asExpected ? Verdict::Ok : Verdict::Differs, std::move(text)};
}

Finding CannotTell(std::wstring reason) {
    return {Verdict::Unknown, std::move(reason)};
}

Finding CannotTell(DWORD error) {
    return CannotTell(ErrorText(error));
}

std::wstring ErrorText(DWORD error) {
    constexpr DWORD FirstResultOfCom = 0x80000000;
    wchar_t code[] = L"error 0x00000000";
    std::swprintf(code, std::size(code), error < FirstResultOfCom ? L"error %lu" : L"error 0x%08lX",
                  error);
    constexpr std::size_t LongestMessage = 256;
    wchar_t message[LongestMessage] = {};
    const DWORD length =
        ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                         /*lpSource=*/nullptr, error, /*dwLanguageId=*/0, message,
                         std::size(message), /*Arguments=*/nullptr);
    const std::wstring_view text(message, length);
    const std::size_t end = text.find_last_not_of(L"\r\n ");
    std::wstring shown = code;
    if (end != std::wstring_view::npos) {
        shown += L": ";
        shown += text.substr(0, end + 1);
    }
    return shown;
}

std::wstring Joined(const std::vector<std::wstring>& texts, const wchar_t* separator) {
    std::wstring joined;
    for (const std::wstring& text : texts) {
        joined += (joined.empty() ? L"" : separator) + text;
    }
    return joined;
}

void Append(Rows& rows, Rows more) {
    rows.insert(rows.end(), std::make_move_iterator(more.begin()),
                std::make_move_iterator(more.end()));
}

}  // namespace verify
