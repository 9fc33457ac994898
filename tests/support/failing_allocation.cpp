#include "support/failing_allocation.h"

#ifdef GUARD_PAGES
#include "support/guard_page_heap.h"
#endif

#include <cstdlib>
#include <new>

namespace {

#ifdef GUARD_PAGES
constexpr auto Allocate = test::AllocateForNew;
constexpr auto Release = test::ReleaseForDelete;
#else
constexpr auto Allocate = std::malloc;
constexpr auto Release = std::free;
#endif

constexpr std::size_t Never = ~std::size_t{0};

std::size_t remaining = Never;
bool lasting = false;
bool failed = false;

}  // namespace

namespace test {

FailingAllocation::FailingAllocation(std::size_t before, bool andAllAfter) {
    failed = false;
    lasting = andAllAfter;
    remaining = before;
}

FailingAllocation::~FailingAllocation() {
    remaining = Never;
}

bool FailingAllocation::Failed() {
    return failed;
}

}  // namespace test

void* operator new(std::size_t size) {
    if (remaining != Never && remaining-- == 0) {
        failed = true;
        remaining = lasting ? 0 : Never;
        throw std::bad_alloc();
    }
    if (void* block = Allocate(size == 0 ? 1 : size)) {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    Release(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    Release(block);
}
