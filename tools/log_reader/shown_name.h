#pragma once

#include <filesystem>
#include <string>

namespace reader {

// A file's name or path for display, in UTF-8, with '/' between directories. What cannot be
// displayed is escaped: a control character or half of a character as \u001b, a byte that is part
// of no character as \xff.
std::string ShownName(const std::filesystem::path& path);

}  // namespace reader
