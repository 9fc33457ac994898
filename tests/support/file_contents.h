#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace test {

// Writes a file and the directories above it.
inline void PutFile(const std::filesystem::path& path, std::string_view text) {
    std::filesystem::create_directories(path.parent_path());
    if (!(std::ofstream(path, std::ios::binary) << text)) {
        throw std::runtime_error("a file cannot be written");
    }
}

// Nothing if there is no such file.
inline std::optional<std::string> FileText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return file ? std::optional(std::string(std::istreambuf_iterator<char>(file), {}))
                : std::nullopt;
}

}  // namespace test
