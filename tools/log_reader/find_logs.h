#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

namespace reader {

// Takes each log in turn, and what cannot be looked at, with a reason in a line.
using LogTaker = std::function<void(const std::filesystem::path& log)>;
using ProblemTaker =
    std::function<void(const std::filesystem::path& path, std::string_view reason)>;

// Finds all files *.log below the directory, in the order of their names. Links are not followed.
void FindLogs(const std::filesystem::path& directory, const LogTaker& take,
              const ProblemTaker& complain);

}  // namespace reader
