#pragma once

#include <string>

namespace test {

// Texts of the log that are the same in every run, byte for byte. Not inline, on purpose: Clang for
// Windows would initialise them after what is made of them.

const std::string LogBegin = "\r\nFIRST RUN - START\r\n\r\n";
const std::string LogEnd = "\r\n\r\nFIRST RUN - FINISHED\r\n";

// What "/?" prints between them.
inline std::string UsageText(const std::string& programTitle = "Finaset") {
    return "\r\n" + programTitle +
           " [/<Option>]\r\n"
           "       Option = /STOP  or  /CONFIGURE  or  /START  or  /DISABLE\r\n"
           "\r\n"
           "       No option means STOP then CONFIGURE then START\r\n"
           "\r\n";
}

}  // namespace test
