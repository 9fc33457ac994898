#pragma once

#include <cstddef>
#include <utility>

namespace test {

// A heap for finding errors. Each block ends where an inaccessible page begins, and once it is
// released, its own pages are inaccessible too: reading or writing there ends the program with an
// access violation. Blocks are aligned to 16 bytes, so up to 15 lie between a block's end and that
// page; writing there, or just before the block, ends the program when the block is released, and
// so does a second release.
//
// Null if out of memory.
void* AllocateGuarded(std::size_t size);
void ReleaseGuarded(void* block);

// While it lives, what is allocated with new has guard pages, or does without: the tests' own code
// allocates more often than the product, and need not be watched where that takes long. Without
// any of these, there are guard pages. It makes no difference to what was allocated before.
class GuardPages {
public:
    explicit GuardPages(bool on) : before_(std::exchange(on_, on)) {}
    GuardPages(const GuardPages&) = delete;
    GuardPages& operator=(const GuardPages&) = delete;
    ~GuardPages() { on_ = before_; }

    [[nodiscard]] static bool On() { return on_; }

private:
    static inline bool on_ = true;

    bool before_;
};

// For new and delete, where memory is guarded at all.
void* AllocateForNew(std::size_t size);
void ReleaseForDelete(void* block);

}  // namespace test
