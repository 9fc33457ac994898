#pragma once

#include <functional>
#include <string>

namespace test {

// Runs `action` and returns, byte for byte, what it wrote to standard output. The action must not
// contain assertions: their output would be captured too.
std::string Printed(const std::function<void()>& action);

}  // namespace test
