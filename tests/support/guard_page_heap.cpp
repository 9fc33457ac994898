#include "support/guard_page_heap.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

namespace test {

namespace {

constexpr std::size_t PageSize = 4096;
constexpr std::size_t Alignment = 16;
constexpr std::uint64_t Mark = 0xC0FFEE0DDBA11AD5;  // stands before each block
constexpr std::byte Filler{0xA5};                   // stands behind it, to the end of the page

// Stands just before the block.
struct alignas(Alignment) Header {
    std::size_t size;
    std::uint64_t mark;
};

std::size_t RoundUp(std::size_t size, std::size_t unit) {
    return (size + unit - 1) / unit * unit;
}

// The platform gives addresses out in steps of 64 KiB.
std::byte* Pages(void* block) {
    constexpr std::uintptr_t Step = 64 * 1024;
    return reinterpret_cast<std::byte*>(reinterpret_cast<std::uintptr_t>(block) & ~(Step - 1));
}

// Their addresses are not given out again for a while, so that a late access meets no other block.
class Released {
public:
    void Add(std::byte* pages) {
        std::byte*& oldest = pages_[next_++ % pages_.size()];
        if (oldest != nullptr) {
            ::VirtualFree(oldest, 0, MEM_RELEASE);
        }
        oldest = pages;
    }

private:
    std::array<std::byte*, 4096> pages_{};
    std::size_t next_ = 0;
};

Released released;

}  // namespace

void* AllocateGuarded(std::size_t size) {
    const std::size_t inUse = sizeof(Header) + RoundUp(size, Alignment);
    const std::size_t length = RoundUp(inUse, PageSize);
    void* pages = length < size
                      ? nullptr
                      : ::VirtualAlloc(nullptr, length + PageSize, MEM_RESERVE, PAGE_NOACCESS);
    if (pages == nullptr || ::VirtualAlloc(pages, length, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        return nullptr;
    }
    std::byte* end = static_cast<std::byte*>(pages) + length;
    auto* header = reinterpret_cast<Header*>(end - inUse);
    *header = {size, Mark};
    auto* block = reinterpret_cast<std::byte*>(header + 1);
    std::fill(block + size, end, Filler);
    return block;
}

void ReleaseGuarded(void* block) {
    if (block == nullptr) {
        return;
    }
    const auto* header = static_cast<const Header*>(block) - 1;
    const auto* begin = static_cast<const std::byte*>(block);
    const std::byte* end = begin + RoundUp(header->size, Alignment);
    if (header->mark != Mark ||
        !std::all_of(begin + header->size, end, [](std::byte each) { return each == Filler; })) {
        std::abort();
    }
    // A block that is larger than a step begins in its first one all the same.
    ::VirtualFree(Pages(block), 0, MEM_DECOMMIT);
    released.Add(Pages(block));
}

}  // namespace test
