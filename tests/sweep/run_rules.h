#pragma once

#include "sweep/installed_product.h"

#include <string>
#include <vector>

namespace test {

// What is wrong with a run, whatever befell it: an exit code, a banner that is missing, a line that
// is none of the log's or not complete, an item that is left out, a step past a gate, a handle that
// is left open, a wait without bound. Nothing if all is well.
std::vector<std::string> BrokenRules(const InstalledProduct& run, const std::wstring& option);

}  // namespace test
