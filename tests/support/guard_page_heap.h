#pragma once

#include <cstddef>

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

}  // namespace test
