// What Wine cannot show, or shows otherwise than Windows does, so that other tests must make
// allowance for it. Each entry is a check of Wine itself, and fails once Wine has learnt better:
// then the entry goes, and the allowance with it.

#include "machine/machine.h"
#include "support/on_wine.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

class WineLimits : public testing::Test {
    void SetUp() override {
        if (!test::OnWine()) {
            GTEST_SKIP() << "not Wine";
        }
    }
};

// Allowance: the command line that a program is started with is compared at the import; what
// arrives is compared with the quotes.
TEST_F(WineLimits, AnUnquotedPathWithBlanksArrivesInQuotes) {
    test::Machine machine;
    machine.InstallProgram(L"stand_in_companion.exe", L"BriskoLU.exe");
    ASSERT_EQ(machine.Run(L"/START").exitCode, 0U);
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"),
                testing::ElementsAre("\"C:\\Program Files\\Tarsel\\Lumetra\\BriskoLU.exe\" -u"));
}

// Allowance: the transacted calls are made to functions that the tests supply.
TEST_F(WineLimits, TransactedOpenAndDeleteAreMissing) {
    const HMODULE advapi = ::GetModuleHandleW(L"Advapi32.dll");
    EXPECT_EQ(::GetProcAddress(advapi, "RegOpenKeyTransactedW"), nullptr);
    EXPECT_NE(::GetProcAddress(advapi, "RegCreateKeyTransactedW"), nullptr);
    EXPECT_EQ(::GetProcAddress(advapi, "RegDeleteKeyTransactedW"), nullptr);
}

}  // namespace
