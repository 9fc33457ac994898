#include "support/private_registry.h"

#include "support/registry_contents.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <string>

namespace {

using test::KeyExists;

std::wstring PlaceBelowTheUser() {
    return L"Software\\FinasetTests\\" + std::to_wstring(::GetCurrentProcessId());
}

TEST(PrivateRegistry, MakesTheLocalMachineEmpty) {
    const test::PrivateRegistry registry;
    EXPECT_EQ(test::SubKeyCount(HKEY_LOCAL_MACHINE, L""), 0U);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"SYSTEM"));
}

TEST(PrivateRegistry, HoldsWhatIsWrittenBelowTheLocalMachine) {
    const test::PrivateRegistry registry;
    test::MakeKey(HKEY_LOCAL_MACHINE, L"key");
    EXPECT_TRUE(KeyExists(registry.Root(), L"key"));
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, PlaceBelowTheUser() + L"\\key"));
}

TEST(PrivateRegistry, RestoresTheLocalMachineAndLeavesNothing) {
    {
        const test::PrivateRegistry registry;
        test::MakeKey(HKEY_LOCAL_MACHINE, L"FinasetTests key\\below");
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"SYSTEM"));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"FinasetTests key"));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, L"Software\\FinasetTests"));
}

TEST(PrivateRegistry, IsEmptyEvenIfAnEarlierProgramLeftSomething) {
    test::MakeKey(HKEY_CURRENT_USER, PlaceBelowTheUser() + L"\\left over");
    const test::PrivateRegistry registry;
    EXPECT_EQ(test::SubKeyCount(HKEY_LOCAL_MACHINE, L""), 0U);
}

}  // namespace
