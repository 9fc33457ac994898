#pragma once

#include "verify/verify.h"

#include <string>
#include <string_view>

namespace verify {

std::string_view NameOf(Verdict verdict);

// One line for each row, and one with the counts; in UTF-8.
std::string WriteText(const Report& report);

// One object on one line, in ASCII.
std::string WriteJson(const Report& report);

}  // namespace verify
