#include "support/guard_page_heap.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

using test::AllocateGuarded;
using test::ReleaseGuarded;
using testing::ExitedWithCode;

constexpr int AccessViolation = static_cast<int>(STATUS_ACCESS_VIOLATION);
constexpr int Aborted = 3;  // the exit code of the C runtime's abort

volatile char* Bytes(void* block) {
    return static_cast<volatile char*>(block);
}

TEST(GuardPageHeapDeathTest, AnOverrunIsCaughtWhereItHappens) {
    volatile char* small = Bytes(AllocateGuarded(16));
    EXPECT_EXIT(small[16] = 1, ExitedWithCode(AccessViolation), "");
    EXPECT_EXIT(static_cast<void>(small[16]), ExitedWithCode(AccessViolation), "");
    volatile char* large = Bytes(AllocateGuarded(100'000));
    EXPECT_EXIT(large[100'000] = 1, ExitedWithCode(AccessViolation), "");
}

TEST(GuardPageHeapDeathTest, AnOverrunOfLessThanTheAlignmentIsCaughtOnRelease) {
    volatile char* bytes = Bytes(AllocateGuarded(10));
    bytes[10] = 1;
    EXPECT_EXIT(ReleaseGuarded(const_cast<char*>(bytes)), ExitedWithCode(Aborted), "");
}

TEST(GuardPageHeapDeathTest, AnUnderrunIsCaughtOnRelease) {
    volatile char* bytes = Bytes(AllocateGuarded(10));
    bytes[-1] = 1;
    EXPECT_EXIT(ReleaseGuarded(const_cast<char*>(bytes)), ExitedWithCode(Aborted), "");
}

TEST(GuardPageHeapDeathTest, AUseAfterTheReleaseIsCaught) {
    volatile char* bytes = Bytes(AllocateGuarded(10));
    ReleaseGuarded(const_cast<char*>(bytes));
    EXPECT_EXIT(bytes[9] = 1, ExitedWithCode(AccessViolation), "");
    for (int round = 0; round < 1000; ++round) {
        ReleaseGuarded(AllocateGuarded(10));
    }
    EXPECT_EXIT(static_cast<void>(bytes[0]), ExitedWithCode(AccessViolation), "");
}

TEST(GuardPageHeapDeathTest, ASecondReleaseIsCaught) {
    void* block = AllocateGuarded(10);
    ReleaseGuarded(block);
    EXPECT_EXIT(ReleaseGuarded(block), ExitedWithCode(AccessViolation), "");
}

TEST(GuardPageHeap, TheWholeBlockCanBeUsed) {
    for (const std::size_t size : {0U, 1U, 16U, 4080U, 4081U, 100'000U}) {
        void* block = AllocateGuarded(size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0U);
        std::memset(block, 1, size);
        ReleaseGuarded(block);
    }
    ReleaseGuarded(nullptr);
}

TEST(GuardPageHeap, OutOfMemoryIsANullPointer) {
    EXPECT_EQ(AllocateGuarded(std::size_t{1} << 50U), nullptr);
    EXPECT_EQ(AllocateGuarded(~std::size_t{0}), nullptr);
}

#ifdef GUARD_PAGES
// Whatever this program, and so the product, allocates with new.
TEST(GuardPageHeapDeathTest, ServesAllOfTheProgram) {
    const auto text = std::make_unique<std::wstring>(1000, L'x');
    volatile const wchar_t* characters = text->c_str();
    EXPECT_EXIT(static_cast<void>(characters[1010]), ExitedWithCode(AccessViolation), "");
    auto number = std::make_unique<int>(1);
    volatile const int* late = number.get();
    number.reset();
    EXPECT_EXIT(static_cast<void>(*late), ExitedWithCode(AccessViolation), "");
}
#endif

}  // namespace
