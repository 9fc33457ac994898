// The guard that ends a program after a stack overrun. The tests are built with it, too.

#include "support/environment_variable.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the compiler's
extern "C" std::uintptr_t __stack_chk_guard;

namespace {

// A constructor like any other, which runs before the entry point.
const std::uintptr_t GuardOfConstructors = __stack_chk_guard;

// A buffer overrun, and not one of what follows it: the guard.
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

TEST(StackGuard, IsFilledBeforeConstructorsRun) {
    EXPECT_NE(__stack_chk_guard, 0U);
    EXPECT_EQ(GuardOfConstructors, __stack_chk_guard);
}

TEST(StackGuard, EndsATextWithItsLowestByte) {
    EXPECT_EQ(__stack_chk_guard & 0xFFU, 0U);
}

// The other process runs this test as well, and finds the variable.
TEST(StackGuardDeathTest, IsAnotherOneInEachProcess) {
    const char* known = std::getenv("FINASET_GUARD");
    const std::string ofTheFirst = known != nullptr ? known : std::to_string(__stack_chk_guard);
    const test::EnvironmentVariable variable(L"FINASET_GUARD",
                                             std::wstring(ofTheFirst.begin(), ofTheFirst.end()));
    EXPECT_EXIT(std::_Exit(std::to_string(__stack_chk_guard) == ofTheFirst ? 1 : 0),
                testing::ExitedWithCode(0), "");
}

TEST(StackGuard, ABufferThatIsFullIsNoOverrun) {
    EXPECT_EQ(Overrun(64), 'x');
}

}  // namespace
