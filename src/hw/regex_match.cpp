#include "hw/regex_match.h"

#include "driver/case_mapping.h"

#include <algorithm>
#include <cstddef>
#include <regex>  // only here: it takes seconds to compile
#include <string_view>

namespace {

namespace regex = std::regex_constants;

constexpr auto Grammar = regex::ECMAScript | regex::icase;

#ifdef __GLIBCXX__

// By default, GCC's library backtracks, one call deeper for each character: 400 bytes of stack for
// ".*", so that a text of some thousand characters overflows the stack, which nothing catches. Its
// other engine reads the text once, in linear time.
constexpr auto Engine = regex::__polynomial;

// The library's own, without its stream: that would be the program's only one, and a fifth of its
// size.
struct Traits : std::regex_traits<wchar_t> {
    // The value of a digit, or -1. The library creates a stream for that.
    static int value(wchar_t digit, int radix) {
        const auto count = static_cast<std::size_t>(radix);
        const std::wstring_view digits(L"0123456789abcdef", count);
        const std::wstring_view capitals(L"0123456789ABCDEF", count);
        return static_cast<int>(std::min(digits.find(digit), capitals.find(digit)));  // npos is -1
    }

    // With traits that are not its own, the library compares a text with the group that it repeats
    // through this, even if the options ignore case.
    static std::wstring transform(std::wstring::const_iterator first,
                                  std::wstring::const_iterator last) {
        std::wstring text(first, last);
        ToLowerInPlace(text);
        return text;
    }
};

#else

// Microsoft's library has one engine, with limits of its own.
constexpr regex::syntax_option_type Engine = {};
using Traits = std::regex_traits<wchar_t>;

#endif

// The longest text for the default engine. No adapter's description is longer: see
// IF_MAX_STRING_SIZE in ifdef.h.
constexpr std::size_t BacktrackingLimit = 256;

bool Matches(const std::wstring& pattern, const std::wstring& text,
             regex::syntax_option_type options) {
    return std::regex_match(text, std::basic_regex<wchar_t, Traits>(pattern, options));
}

}  // namespace

bool RegexMatchesWhole(const std::wstring& pattern, const std::wstring& text) {
    try {
        return Matches(pattern, text, Grammar | Engine);
    } catch (const std::regex_error& error) {
        // The linear engine's answer to a back-reference, which it does not support.
        if (error.code() != regex::error_complexity || text.size() > BacktrackingLimit) {
            return false;
        }
    }
    try {
        return Matches(pattern, text, Grammar);
    } catch (const std::regex_error&) {
        return false;
    }
}
