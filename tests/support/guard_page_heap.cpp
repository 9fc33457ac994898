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
constexpr std::uint64_t Mark = 0xC0FFEE0DDBA11AD5;  // precedes each block
constexpr std::uint64_t PlainMark = ~Mark;          // precedes each one without guard pages
constexpr std::byte Filler{0xA5};                   // follows it, to the end of the page

// Immediately precedes the block.
struct alignas(Alignment) Header {
    std::size_t size;
    std::uint64_t mark;
};

std::size_t RoundUp(std::size_t size, std::size_t unit) {
    return (size + unit - 1) / unit * unit;
}

// Where a block's pages begin: the platform allocates addresses in steps of 64 KiB, and a block
// larger than a step still begins in its first one.
std::byte* Pages(void* block) {
    constexpr std::uintptr_t Step = 0x10000;
    return reinterpret_cast<std::byte*>(reinterpret_cast<std::uintptr_t>(block) & ~(Step - 1));
}

// The pages of released blocks, kept for a while so that a late access hits no other block.
class Quarantine {
public:
    void Add(std::byte* pages) {
        if (added_ - taken_ == pages_.size()) {
            ::VirtualFree(Oldest(), 0, MEM_RELEASE);
        }
        pages_[added_++ % pages_.size()] = pages;
    }

    // Those that have been here for long, if there are any; else null.
    std::byte* Take() { return added_ - taken_ < pages_.size() / 2 ? nullptr : Oldest(); }

private:
    std::byte* Oldest() { return pages_[taken_++ % pages_.size()]; }

    std::array<std::byte*, 4096> pages_{};
    std::size_t added_ = 0;
    std::size_t taken_ = 0;
};

// Most blocks have one page. It is locked on release and reused, which takes a fraction of the time
// of a new one.
Quarantine singles;
Quarantine others;

std::byte* PagesFor(std::size_t length) {
    std::byte* used = length == PageSize ? singles.Take() : nullptr;
    if (used != nullptr) {
        DWORD before = 0;
        ::VirtualProtect(used, PageSize, PAGE_READWRITE, &before);
        return used;
    }
    // The page at the end is never committed.
    void* pages = ::VirtualAlloc(nullptr, length + PageSize, MEM_RESERVE, PAGE_NOACCESS);
    return static_cast<std::byte*>(
        pages == nullptr ? nullptr : ::VirtualAlloc(pages, length, MEM_COMMIT, PAGE_READWRITE));
}

void Lock(std::byte* pages, std::size_t length) {
    if (length == PageSize) {
        DWORD before = 0;
        ::VirtualProtect(pages, PageSize, PAGE_NOACCESS, &before);
        singles.Add(pages);
    } else {
        ::VirtualFree(pages, 0, MEM_DECOMMIT);
        others.Add(pages);
    }
}

std::size_t LengthFor(std::size_t size) {
    return RoundUp(sizeof(Header) + RoundUp(size, Alignment), PageSize);
}

}  // namespace

void* AllocateGuarded(std::size_t size) {
    const std::size_t length = LengthFor(size);
    std::byte* pages = length < size ? nullptr : PagesFor(length);
    if (pages == nullptr) {
        return nullptr;
    }
    std::byte* end = pages + length;
    std::byte* block = end - RoundUp(size, Alignment);
    *(reinterpret_cast<Header*>(block) - 1) = {size, Mark};
    std::fill(block + size, end, Filler);
    return block;
}

void ReleaseGuarded(void* block) {
    if (block == nullptr) {
        return;
    }
    const Header header = *(static_cast<const Header*>(block) - 1);
    const auto* begin = static_cast<const std::byte*>(block);
    const std::byte* end = begin + RoundUp(header.size, Alignment);
    if (header.mark != Mark ||
        !std::all_of(begin + header.size, end, [](std::byte each) { return each == Filler; })) {
        std::abort();
    }
    Lock(Pages(block), LengthFor(header.size));
}

void* AllocateForNew(std::size_t size) {
    if (GuardPages::On()) {
        return AllocateGuarded(size);
    }
    const std::size_t length = sizeof(Header) + size;
    auto* const header = static_cast<Header*>(length < size ? nullptr : std::malloc(length));
    if (header == nullptr) {
        return nullptr;
    }
    *header = {size, PlainMark};
    return header + 1;
}

void ReleaseForDelete(void* block) {
    auto* const header = block == nullptr ? nullptr : static_cast<Header*>(block) - 1;
    if (header == nullptr || header->mark != PlainMark) {
        ReleaseGuarded(block);
        return;
    }
    header->mark = 0;
    std::free(header);
}

}  // namespace test
