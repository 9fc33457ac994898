// What ends a program whose stack is overrun. The tests are built with it as the product is.

#include <windows.h>

#include <cstddef>
#include <gtest/gtest.h>

namespace {

// Of a buffer, and not of what follows on it: the guard.
[[gnu::noinline]] int Overrun(std::size_t bytes) {
    volatile char buffer[64] = {};
    volatile char* out = buffer;
    for (std::size_t index = 0; index < bytes; ++index) {
        out[index] = 'x';
    }
    return buffer[0];
}

TEST(StackGuardDeathTest, AnOverrunEndsTheProgram) {
    constexpr int StackOverrun = static_cast<int>(STATUS_STACK_BUFFER_OVERRUN);
    EXPECT_EXIT(Overrun(80), testing::ExitedWithCode(StackOverrun), "");
}

TEST(StackGuard, ABufferThatIsFullIsNoOverrun) {
    EXPECT_EQ(Overrun(64), 'x');
}

}  // namespace
