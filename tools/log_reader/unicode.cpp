#include "log_reader/unicode.h"

#include <bit>

namespace reader {

namespace {

constexpr int MostBytes = 4;
constexpr unsigned BitsOfMore = 6;
constexpr char32_t MaskOfMore = 0x3F;
constexpr char32_t MarkOfMore = 0x80;
constexpr char32_t LastOfOneByte = 0x7F;
constexpr char32_t LastOfTwoBytes = 0x7FF;
constexpr char32_t LastOfThreeBytes = 0xFFFF;

char32_t CodeOf(char byte) {
    return static_cast<unsigned char>(byte);
}

int LeadingOnes(char byte) {
    return std::countl_one(static_cast<unsigned char>(byte));
}

}  // namespace

std::optional<char32_t> TakeUtf8(std::string_view& text) {
    constexpr unsigned AllBits = 0xFF;
    if (text.empty()) {
        return std::nullopt;
    }
    const int ones = LeadingOnes(text.front());
    const std::size_t length = ones == 0 ? 1 : static_cast<std::size_t>(ones);
    if (ones == 1 || ones > MostBytes || text.size() < length) {
        return std::nullopt;
    }
    char32_t character = CodeOf(text.front()) & (AllBits >> static_cast<unsigned>(ones));
    for (const char more : text.substr(1, length - 1)) {
        if (LeadingOnes(more) != 1) {
            return std::nullopt;
        }
        character = character << BitsOfMore | (CodeOf(more) & MaskOfMore);
    }
    text.remove_prefix(length);
    return character;
}

void AppendUtf8(std::string& text, char32_t character) {
    constexpr char32_t OfTwo = 0xC0;
    constexpr char32_t OfThree = 0xE0;
    constexpr char32_t OfFour = 0xF0;
    const auto more = [&](unsigned rest) {
        text += static_cast<char>(MarkOfMore | (character >> (rest * BitsOfMore) & MaskOfMore));
    };
    if (character <= LastOfOneByte) {
        text += static_cast<char>(character);
    } else if (character <= LastOfTwoBytes) {
        text += static_cast<char>(OfTwo | character >> BitsOfMore);
        more(0);
    } else if (character <= LastOfThreeBytes) {
        text += static_cast<char>(OfThree | character >> (2 * BitsOfMore));
        more(1);
        more(0);
    } else {
        text += static_cast<char>(OfFour | character >> (3 * BitsOfMore));
        more(2);
        more(1);
        more(0);
    }
}

std::string Utf8OfLog(std::string_view text) {
    std::string utf8;
    for (const char character : text) {
        AppendUtf8(utf8, CodeOf(character));
    }
    return utf8;
}

}  // namespace reader
