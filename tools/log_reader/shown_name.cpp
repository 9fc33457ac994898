#include "log_reader/shown_name.h"

#include "log_reader/unicode.h"

#include <optional>
#include <string_view>

namespace reader {

namespace {

void AppendEscaped(std::string& text, char kind, unsigned digits, char32_t code) {
    constexpr std::string_view Digits = "0123456789abcdef";
    constexpr unsigned BitsOfDigit = 4;
    text += '\\';
    text += kind;
    while (digits-- > 0) {
        text += Digits[code >> (digits * BitsOfDigit) & (Digits.size() - 1)];
    }
}

bool IsSurrogate(char32_t code) {
    constexpr char32_t First = 0xD800;
    constexpr char32_t Last = 0xDFFF;
    return code >= First && code <= Last;
}

void AppendShown(std::string& text, char32_t character) {
    constexpr char32_t Delete = 0x7F;
    constexpr char32_t AfterControls = 0xA0;
    constexpr char32_t LineSeparator = 0x2028;
    constexpr char32_t ParagraphSeparator = 0x2029;
    if (character < U' ' || (character >= Delete && character < AfterControls) ||
        character == LineSeparator || character == ParagraphSeparator || IsSurrogate(character)) {
        AppendEscaped(text, 'u', 4, character);
    } else {
        AppendUtf8(text, character);
    }
}

// A name that should be UTF-8.
[[maybe_unused]] std::string Shown(std::string_view name) {
    constexpr char32_t LastOfUnicode = 0x10FFFF;
    std::string shown;
    while (!name.empty()) {
        std::string_view rest = name;
        const std::optional<char32_t> character = TakeUtf8(rest);
        std::string shortest;
        if (character && *character <= LastOfUnicode && !IsSurrogate(*character)) {
            AppendUtf8(shortest, *character);
        }
        if (!shortest.empty() && name.starts_with(shortest)) {
            AppendShown(shown, *character);
            name.remove_prefix(shortest.size());
        } else {
            AppendEscaped(shown, 'x', 2, static_cast<unsigned char>(name.front()));
            name.remove_prefix(1);
        }
    }
    return shown;
}

// A name that should be UTF-16.
[[maybe_unused]] std::string Shown(std::wstring_view name) {
    constexpr char32_t FirstOfPairs = 0x10000;
    constexpr unsigned BitsOfHalf = 10;
    constexpr char32_t MaskOfHalf = 0x3FF;
    constexpr char32_t SecondHalves = 0xDC00;
    std::string shown;
    for (std::size_t index = 0; index < name.size(); ++index) {
        const auto unit = static_cast<char32_t>(name[index]);
        const auto next =
            index + 1 < name.size() ? static_cast<char32_t>(name[index + 1]) : char32_t{0};
        if (IsSurrogate(unit) && unit < SecondHalves && IsSurrogate(next) && next >= SecondHalves) {
            AppendShown(shown,
                        FirstOfPairs + ((unit & MaskOfHalf) << BitsOfHalf) + (next & MaskOfHalf));
            ++index;
        } else {
            AppendShown(shown, unit == U'\\' ? U'/' : unit);
        }
    }
    return shown;
}

}  // namespace

std::string ShownName(const std::filesystem::path& path) {
    return Shown(path.native());
}

}  // namespace reader
