#pragma once

#include "log_reader/report.h"

#include <filesystem>
#include <vector>

namespace reader {

// Reads one log after another, and holds no more of one than a machine's run can have.
class FileReader {
public:
    FileReader();

    // The last run of a log, not yet judged. Throws NotALog.
    Report Read(const std::filesystem::path& path);

private:
    std::vector<char> buffer_;
};

}  // namespace reader
