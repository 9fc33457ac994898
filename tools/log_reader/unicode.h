#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace reader {

// Takes the next character off a UTF-8 text, or nothing if it does not begin with one. Accepts
// overlong forms too.
std::optional<char32_t> TakeUtf8(std::string_view& text);

void AppendUtf8(std::string& text, char32_t character);

// The log's one-byte characters in UTF-8.
std::string Utf8OfLog(std::string_view text);

}  // namespace reader
