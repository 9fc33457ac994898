#pragma once

#include <cstddef>

namespace test {

// While it lives, one allocation of this program fails as for want of memory: the one that follows
// on `before` others; or that one and all after it.
class FailingAllocation {
public:
    explicit FailingAllocation(std::size_t before, bool andAllAfter = false);
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();

    // Whether it has come to that.
    [[nodiscard]] static bool Failed();
};

}  // namespace test
