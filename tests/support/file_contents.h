#pragma once

#ifdef _WIN32
#include "support/on_wine.h"

#include <windows.h>
#endif

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

namespace test {

#ifdef _WIN32
constexpr int MostPauses = 500;  // of 10 ms

// Returns when nothing else has the file open: on Windows, virus scanners briefly open a new one,
// and an open file makes a difference to the product.
inline void WaitUntilFree(const std::filesystem::path& path) {
    for (int pauses = 0; !OnWine() && pauses < MostPauses; ++pauses) {
        const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            ::CloseHandle(file);
            return;
        }
        if (::GetLastError() != ERROR_SHARING_VIOLATION) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// Creates a directory, and those above it, of which the attributes say that and no more. On
// Windows, what is below a user's temporary directory or the machine's data inherits that it is not
// indexed, and to the product a directory with such an attribute is another than one without.
inline void MakePlainDirectory(const std::filesystem::path& path) {
    std::filesystem::create_directories(path);
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// Deletes a file or a directory with its contents, if it exists. On Windows, the file of a program
// that has just ended cannot be deleted at once. A failure shows where the name is used next.
inline void RemoveAll(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::remove_all(path, error);
    for (int pauses = 0; error && !OnWine() && pauses < MostPauses; ++pauses) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::filesystem::remove_all(path, error);
    }
}
#else
inline void WaitUntilFree(const std::filesystem::path& /*path*/) {}
#endif

// Writes a file and the directories above it.
inline void PutFile(const std::filesystem::path& path, std::string_view text) {
    std::filesystem::create_directories(path.parent_path());
    if (!(std::ofstream(path, std::ios::binary) << text)) {
        throw std::runtime_error("a file cannot be written");
    }
    WaitUntilFree(path);
}

// Nothing if the file does not exist.
inline std::optional<std::string> FileText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return file ? std::optional(std::string(std::istreambuf_iterator<char>(file), {}))
                : std::nullopt;
}

}  // namespace test
