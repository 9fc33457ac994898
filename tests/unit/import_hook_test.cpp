#include "support/import_hook.h"

#include <windows.h>

#include <io.h>
#include <tlhelp32.h>

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using test::ImportHook;

TEST(ImportHook, SendsCallsToTheReplacementUntilItEnds) {
    {
        ImportHook<&::GetTickCount64> hook([] { return ULONGLONG{42}; });
        EXPECT_EQ(::GetTickCount64(), 42U);
    }
    EXPECT_NE(::GetTickCount64(), 42U);
}

TEST(ImportHook, PassesArgumentsAndResultThrough) {
    DWORD seen = 0;
    ImportHook<&::OpenProcess> hook([&](DWORD access, BOOL, DWORD id) -> HANDLE {
        seen = access;
        ::SetLastError(id);
        return nullptr;
    });
    EXPECT_EQ(::OpenProcess(7, FALSE, 1234), nullptr);
    EXPECT_EQ(seen, 7U);
    EXPECT_EQ(::GetLastError(), 1234U);
}

TEST(ImportHook, ForwardReachesThePlatform) {
    int calls = 0;
    ImportHook<&::GetCurrentProcessId> hook([&] {
        ++calls;
        return hook.Forward();
    });
    EXPECT_EQ(::GetCurrentProcessId(), ::GetProcessId(::GetCurrentProcess()));
    EXPECT_EQ(calls, 1);
}

TEST(ImportHook, NestsAndForwardsToTheHookAroundIt) {
    ImportHook<&::GetTickCount64> outer([] { return ULONGLONG{10}; });
    {
        ImportHook<&::GetTickCount64> inner([&] { return inner.Forward() + 1; });
        EXPECT_EQ(::GetTickCount64(), 11U);
    }
    EXPECT_EQ(::GetTickCount64(), 10U);
}

TEST(ImportHook, ReachesFunctionsDeclaredWithoutDllimport) {
    ImportHook<&::CreateToolhelp32Snapshot> hook(
        [](DWORD, DWORD) { return reinterpret_cast<HANDLE>(0x1234); });
    EXPECT_EQ(::CreateToolhelp32Snapshot(0, 0), reinterpret_cast<HANDLE>(0x1234));
}

TEST(ImportHook, ReachesTheCRuntime) {
    ImportHook<&::_setmode> hook([](int, int) { return 77; });
    EXPECT_EQ(::_setmode(0, 0), 77);
}

TEST(ImportHook, AnExceptionLeavesThroughTheCaller) {
    ImportHook<&::GetTickCount64> hook(
        []() -> ULONGLONG { throw std::runtime_error("from the replacement"); });
    EXPECT_THROW(::GetTickCount64(), std::runtime_error);
}

TEST(ImportHook, RefusesAFunctionThatIsNotImported) {
    EXPECT_THROW(test::FindImportSlot(reinterpret_cast<void*>(&test::FindImportSlot)),
                 std::logic_error);
}

}  // namespace
