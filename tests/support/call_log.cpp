#include "support/call_log.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace test {

std::string Narrow(std::wstring_view text) {
    std::string narrow(text.size(), '?');
    char* to = narrow.data();  // tests are not optimised: an iterator would take much longer
    for (const wchar_t character : text) {
        if (character <= L'\u00FF') {
            *to = static_cast<char>(character);
        }
        ++to;
    }
    return narrow;
}

std::string Shown(const wchar_t* text) {
    if (text == nullptr) {
        return Shown(nullptr);
    }
    std::string shown;
    for (; *text != L'\0'; ++text) {
        shown += *text <= L'\u00FF' ? std::string(1, static_cast<char>(*text))
                                    : "\\" + std::to_string(*text);
    }
    return shown;
}

std::string Shown(const char* text) {
    return text == nullptr ? Shown(nullptr) : text;
}

std::string ShownHandle(const void* handle) {
    return handle == nullptr ? Shown(nullptr)
                             : "handle " + Shown(reinterpret_cast<std::uintptr_t>(handle));
}

Calls CallLog::Of(std::string_view function) const {
    Calls found;
    std::ranges::copy_if(lines_, std::back_inserter(found), [function](const std::string& line) {
        return line.starts_with(std::string(function) + "(");
    });
    return found;
}

}  // namespace test
