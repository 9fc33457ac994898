#pragma once

#include "log_reader/report.h"

#include <stdexcept>
#include <string_view>

namespace reader {

// Says in one line why the input is no log.
struct NotALog : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The last run of a log, not judged yet. Throws NotALog.
Report ReadLog(std::string_view bytes);

}  // namespace reader
