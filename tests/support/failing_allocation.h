#pragma once

#include <cstddef>

namespace test {

// While it lives, one allocation of this program fails as if out of memory: the one after `before`
// others; or that one and all later ones.
class FailingAllocation {
public:
    explicit FailingAllocation(std::size_t before, bool andAllAfter = false);
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();

    // Whether an allocation has failed.
    [[nodiscard]] static bool Failed();
};

}  // namespace test
