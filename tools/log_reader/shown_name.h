#pragma once

#include <filesystem>
#include <string>

namespace reader {

// A file's name or path as it is shown, in UTF-8, with '/' between directories. What of it cannot
// be shown is escaped: a control character or half of a character as \u001b, a byte that is of no
// character as \xff.
std::string ShownName(const std::filesystem::path& path);

}  // namespace reader
