#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

namespace reader {

// Takes each log in turn, and what cannot be read, with a one-line reason.
using LogTaker = std::function<void(const std::filesystem::path& log)>;
using ProblemTaker =
    std::function<void(const std::filesystem::path& path, std::string_view reason)>;

// Finds all *.log files below the directory, sorted by name. Does not follow links.
void FindLogs(const std::filesystem::path& directory, const LogTaker& take,
              const ProblemTaker& complain);

}  // namespace reader
