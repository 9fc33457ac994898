#pragma once

#include <cstddef>

namespace test {

// A heap for finding faults. Each block ends where a page begins that cannot be touched, and once
// it is released, none of its own pages can: reading or writing there ends the program with an
// access violation. Blocks are aligned to 16 bytes, so up to 15 lie between a block's end and that
// page; what is written there, or just before the block, ends the program when the block is
// released, and so does a second release.
//
// Null if there is no memory.
void* AllocateGuarded(std::size_t size);
void ReleaseGuarded(void* block);

}  // namespace test
