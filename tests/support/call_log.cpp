#include "support/call_log.h"

#include <algorithm>
#include <iterator>

namespace test {

std::string Narrow(std::wstring_view text) {
    std::string narrow;
    std::ranges::transform(text, std::back_inserter(narrow), [](wchar_t character) {
        return character <= L'\u00FF' ? static_cast<char>(character) : '?';
    });
    return narrow;
}

std::vector<std::string> CallLog::Of(std::string_view function) const {
    std::vector<std::string> found;
    std::ranges::copy_if(lines_, std::back_inserter(found), [function](const std::string& line) {
        return line.starts_with(std::string(function) + "(");
    });
    return found;
}

}  // namespace test
