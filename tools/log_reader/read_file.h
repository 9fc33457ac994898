#pragma once

#include "log_reader/report.h"

#include <filesystem>
#include <vector>

namespace reader {

// Reads one log after the other, and holds no more of one than the run of a machine can be.
class FileReader {
public:
    FileReader();

    // The last run of a log, not judged yet. Throws NotALog.
    Report Read(const std::filesystem::path& path);

private:
    std::vector<char> buffer_;
};

}  // namespace reader
