#pragma once

#include <functional>
#include <memory>
#include <string>

namespace test {

// While it lives, passes each write to the progress log to `seen`, as one formatted text, just
// before it is written.
class PrintHook {
public:
    explicit PrintHook(std::function<void(const std::string&)> seen);
    PrintHook(const PrintHook&) = delete;
    PrintHook& operator=(const PrintHook&) = delete;
    ~PrintHook();

private:
    struct Hook;

    std::unique_ptr<Hook> hook_;
};

}  // namespace test
