#pragma once

#include "sweep/installed_product.h"

#include <string>
#include <vector>

namespace test {

// The errors of a run, whatever happened in it: an exit code, a missing banner, an unknown or
// incomplete line, an omitted item, a step past a gate, an open handle, an unbounded wait. Nothing
// if all is well.
std::vector<std::string> BrokenRules(const InstalledProduct& run, const std::wstring& option);

}  // namespace test
