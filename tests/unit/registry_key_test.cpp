#include "registry/registry_key.h"

#include "support/import_hook.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/registry_mocks.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

using test::ImportHook;
using test::KeyExists;
using test::MakeKey;
using test::MockImport;
using testing::_;
using testing::InSequence;
using testing::NotNull;
using testing::Pointee;
using testing::Return;
using testing::StrEq;
using Utils::RegistryKey;
using Utils::RegistryTransaction;

constexpr REGSAM View64 = 0x100;
constexpr REGSAM View32 = 0x200;

// Handles that only a replaced function is ever given.
const auto Transaction = reinterpret_cast<HANDLE>(0x7A7A);
const auto Advapi = reinterpret_cast<HMODULE>(0xAD7A);

// Answers the look-up of one function of Advapi32.dll. Makes itself the last hook: finding a slot
// needs the platform's own GetModuleHandleW.
class Lookup {
public:
    Lookup(const char* function, FARPROC address, int times) {
        EXPECT_CALL(module_, Call(StrEq(L"Advapi32.dll")))
            .Times(times)
            .WillRepeatedly(Return(Advapi));
        EXPECT_CALL(function_, Call(Advapi, StrEq(function)))
            .Times(times)
            .WillRepeatedly(Return(address));
    }

private:
    MockImport<&::GetProcAddress> function_;
    MockImport<&::GetModuleHandleW> module_;
};

// A function that not every system has, to be handed out by a look-up.
template <typename Signature>
class MockFunctionOfAdvapi;

template <typename Result, typename... Arguments>
class MockFunctionOfAdvapi<Result(Arguments...)>
    : public testing::MockFunction<Result(Arguments...)> {
public:
    MockFunctionOfAdvapi() { instance_ = this; }

    [[nodiscard]] FARPROC Address() const {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Dispatch));
    }

private:
    static Result Dispatch(Arguments... arguments) { return instance_->Call(arguments...); }

    static inline MockFunctionOfAdvapi* instance_ = nullptr;
};

using MockOpenTransacted = MockFunctionOfAdvapi<decltype(::RegOpenKeyTransactedW)>;
using MockCreateTransacted = MockFunctionOfAdvapi<decltype(::RegCreateKeyTransactedW)>;
using MockDeleteTransacted = MockFunctionOfAdvapi<decltype(::RegDeleteKeyTransactedW)>;
using MockDeleteEx = MockFunctionOfAdvapi<decltype(::RegDeleteKeyExW)>;

// Stands for the plain functions that open a key; both call `replacement` with the access mask and
// with what goes on to the platform.
class OpeningHook {
public:
    using Forward = std::function<LSTATUS(REGSAM)>;

    explicit OpeningHook(std::function<LSTATUS(REGSAM, const Forward&)> replacement)
        : replacement_(std::move(replacement)) {}

private:
    std::function<LSTATUS(REGSAM, const Forward&)> replacement_;
    ImportHook<&::RegOpenKeyExW> open_{
        [this](HKEY parent, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
            return replacement_(access, [&](REGSAM forwarded) {
                return open_.Forward(parent, path, options, forwarded, key);
            });
        }};
    ImportHook<&::RegCreateKeyExW> create_{[this](HKEY parent, LPCWSTR path, DWORD reserved,
                                                  LPWSTR keyClass, DWORD options, REGSAM access,
                                                  auto* security, PHKEY key, DWORD* disposition) {
        return replacement_(access, [&](REGSAM forwarded) {
            return create_.Forward(parent, path, reserved, keyClass, options, forwarded, security,
                                   key, disposition);
        });
    }};
};

// ---- Opening: Open and CreateOrOpen alike

struct Opening {
    std::string name;
    LSTATUS (RegistryKey::*open)(HKEY, const std::wstring&, REGSAM);
    const char* transacted;
};

class RegistryKeyOpening : public testing::TestWithParam<Opening> {
protected:
    RegistryKeyOpening() {
        MakeKey(HKEY_LOCAL_MACHINE, L"before");
        MakeKey(HKEY_LOCAL_MACHINE, L"after");
    }

    static LSTATUS Open(RegistryKey& key, const std::wstring& path, REGSAM access) {
        return (key.*GetParam().open)(HKEY_LOCAL_MACHINE, path, access);
    }

    // Opens a key, lets opening another fail, and expects that nothing has changed.
    static void ExpectNoChange(RegistryKey& key, LSTATUS error,
                               const std::function<LSTATUS()>& openAnother) {
        const HKEY handle = key.Get();
        const REGSAM flags = key.ViewFlags();
        EXPECT_NE(handle, nullptr);
        EXPECT_NE(flags, 0U);
        MockImport<&::RegCloseKey> close;
        EXPECT_CALL(close, Call).Times(0);
        EXPECT_EQ(openAnother(), error);
        EXPECT_EQ(key.Get(), handle);
        EXPECT_EQ(key.ViewFlags(), flags);
    }

    test::PrivateRegistry registry_;
};

INSTANTIATE_TEST_SUITE_P(
    Both, RegistryKeyOpening,
    testing::Values(Opening{"Open", &RegistryKey::Open, "RegOpenKeyTransactedW"},
                    Opening{"CreateOrOpen", &RegistryKey::CreateOrOpen, "RegCreateKeyTransactedW"}),
    [](const auto& test) { return test.param.name; });

TEST_P(RegistryKeyOpening, HoldsTheKey) {
    MakeKey(HKEY_LOCAL_MACHINE, L"before\\below");
    RegistryKey key;
    EXPECT_EQ(Open(key, L"before", KEY_READ), ERROR_SUCCESS);
    EXPECT_TRUE(KeyExists(key.Get(), L"below"));
}

TEST_P(RegistryKeyOpening, KeepsTheViewBitsOfTheAccessMask) {
    const OpeningHook withoutViews([](REGSAM access, const OpeningHook::Forward& forward) {
        return forward(access & ~(View32 | View64));
    });
    for (const REGSAM view : {REGSAM{0}, View64, View32, View32 | View64}) {
        RegistryKey key;
        EXPECT_EQ(Open(key, L"before", KEY_ALL_ACCESS | view), ERROR_SUCCESS);
        EXPECT_EQ(key.ViewFlags(), view);
    }
}

TEST_P(RegistryKeyOpening, ChangesNothingOnFailure) {
    RegistryKey key;
    Open(key, L"before", KEY_READ | View64);
    const OpeningHook failure(
        [](REGSAM, const OpeningHook::Forward&) { return ERROR_ACCESS_DENIED; });
    ExpectNoChange(key, ERROR_ACCESS_DENIED, [&] { return Open(key, L"after", KEY_READ); });
}

TEST_P(RegistryKeyOpening, ReplacesTheKeyThatWasOpenAndPassesTheErrorOfItsCloseOn) {
    RegistryKey key;
    Open(key, L"before", KEY_READ | View64);
    const HKEY before = key.Get();
    {
        ImportHook<&::RegCloseKey> close([&](HKEY handle) {
            EXPECT_EQ(handle, before);
            EXPECT_EQ(close.Forward(handle), ERROR_SUCCESS);
            return ERROR_INVALID_HANDLE;
        });
        EXPECT_EQ(Open(key, L"after", KEY_READ), ERROR_INVALID_HANDLE);
    }
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), 0U);
    EXPECT_EQ(Open(key, L"before", KEY_READ), ERROR_SUCCESS);
}

TEST_P(RegistryKeyOpening, InATransactionNeedsTheTransactedFunction) {
    RegistryTransaction transaction{.handle = nullptr, .plainAllowed = true};
    RegistryKey key(&transaction);
    Open(key, L"before", KEY_READ | View64);
    transaction.handle = Transaction;
    ExpectNoChange(key, ERROR_INVALID_FUNCTION, [&] {
        const Lookup lookup(GetParam().transacted, /*address=*/nullptr, /*times=*/1);
        return Open(key, L"after", KEY_READ);
    });
}

TEST_P(RegistryKeyOpening, InATransactionNeedsTheModuleOfTheTransactedFunction) {
    RegistryTransaction transaction{.handle = nullptr, .plainAllowed = true};
    RegistryKey key(&transaction);
    Open(key, L"before", KEY_READ | View64);
    transaction.handle = Transaction;
    ExpectNoChange(key, ERROR_INVALID_FUNCTION, [&] {
        MockImport<&::GetProcAddress> function;
        MockImport<&::GetModuleHandleW> module;
        EXPECT_CALL(function, Call).Times(0);
        EXPECT_CALL(module, Call(StrEq(L"Advapi32.dll"))).WillOnce(Return(nullptr));
        return Open(key, L"after", KEY_READ);
    });
}

TEST_P(RegistryKeyOpening, IsRefusedWithoutATransactionHandleUnlessThePlainWayIsAllowed) {
    RegistryTransaction transaction{.handle = nullptr, .plainAllowed = true};
    RegistryKey key(&transaction);
    EXPECT_EQ(Open(key, L"before", KEY_READ | View64), ERROR_SUCCESS);
    transaction.plainAllowed = false;
    const OpeningHook plain([](REGSAM, const OpeningHook::Forward&) {
        ADD_FAILURE() << "opened in the plain way";
        return ERROR_SUCCESS;
    });
    ExpectNoChange(key, ERROR_INVALID_FUNCTION, [&] { return Open(key, L"after", KEY_READ); });
}

// ---- Opening: what each function is called with

TEST(RegistryKey, HoldsNothingAtFirst) {
    MockImport<&::RegCloseKey> close;
    EXPECT_CALL(close, Call).Times(0);
    const RegistryKey key;
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), 0U);
}

TEST(RegistryKey, OpensWithTheMaskAndNoOptions) {
    MockImport<&::RegOpenKeyExW> open;
    EXPECT_CALL(open,
                Call(HKEY_CURRENT_USER, StrEq(L"FinasetTests\\missing"), 0, 0x20219, NotNull()))
        .Times(1);
    RegistryKey key;
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"FinasetTests\\missing", KEY_READ | View32),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), 0U);
}

TEST(RegistryKey, CreatesWithoutClassOptionsAndSecurity) {
    const test::PrivateRegistry registry;
    MockImport<&::RegCreateKeyExW> create;
    EXPECT_CALL(create, Call(HKEY_LOCAL_MACHINE, StrEq(L"a\\b"), 0, nullptr, 0, 0x20206, nullptr,
                             NotNull(), NotNull()))
        .Times(2);
    RegistryKey key;
    for (const char* time : {"missing at first", "there by now"}) {
        SCOPED_TRACE(time);
        EXPECT_EQ(key.CreateOrOpen(HKEY_LOCAL_MACHINE, L"a\\b", KEY_WRITE | View32), ERROR_SUCCESS);
        EXPECT_EQ(key.ViewFlags(), View32);
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"a\\b"));
}

TEST(RegistryKey, OpensInTheTransactionAndLooksTheFunctionUpEachTime) {
    const test::PrivateRegistry registry;
    const RegistryTransaction transaction{.handle = Transaction, .plainAllowed = false};
    MockOpenTransacted open;
    EXPECT_CALL(
        open, Call(HKEY_LOCAL_MACHINE, StrEq(L"a\\b"), 0, 0x20319, NotNull(), Transaction, nullptr))
        .WillOnce(Return(ERROR_ACCESS_DENIED))
        .WillOnce([&](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY opened, HANDLE, PVOID) {
            return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_READ, opened);
        });
    RegistryKey key(&transaction);
    const Lookup lookup("RegOpenKeyTransactedW", open.Address(), /*times=*/2);
    const auto openKey = [&] {
        return key.Open(HKEY_LOCAL_MACHINE, L"a\\b", KEY_READ | View32 | View64);
    };
    EXPECT_EQ(openKey(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(openKey(), ERROR_SUCCESS);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), View32 | View64);
}

TEST(RegistryKey, CreatesInTheTransactionAndLooksTheFunctionUpEachTime) {
    const test::PrivateRegistry registry;
    const RegistryTransaction transaction{.handle = Transaction, .plainAllowed = false};
    MockCreateTransacted create;
    EXPECT_CALL(create, Call(HKEY_LOCAL_MACHINE, StrEq(L"a\\b"), 0, nullptr, 0, 0x20306, nullptr,
                             NotNull(), NotNull(), Transaction, nullptr))
        .WillOnce(Return(ERROR_ACCESS_DENIED))
        .WillOnce(
            [&](HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, auto*, PHKEY opened, DWORD*, HANDLE,
                PVOID) { return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_READ, opened); });
    RegistryKey key(&transaction);
    const Lookup lookup("RegCreateKeyTransactedW", create.Address(), /*times=*/2);
    const auto createKey = [&] {
        return key.CreateOrOpen(HKEY_LOCAL_MACHINE, L"a\\b", KEY_WRITE | View32 | View64);
    };
    EXPECT_EQ(createKey(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(createKey(), ERROR_SUCCESS);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), View32 | View64);
}

// ---- Closing

TEST(RegistryKey, ClosesOnceAndHoldsNothingAfterwards) {
    const test::PrivateRegistry registry;
    RegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"", KEY_READ | View64), ERROR_SUCCESS);
    MockImport<&::RegCloseKey> close;
    EXPECT_CALL(close, Call(key.Get())).Times(1);
    key.Close();
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), 0U);
    key.Close();
}

TEST(RegistryKey, ClosesAtTheEndOfItsScope) {
    const test::PrivateRegistry registry;
    MockImport<&::RegCloseKey> close;
    RegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"", KEY_READ), ERROR_SUCCESS);
    EXPECT_CALL(close, Call(key.Get())).Times(1);
}

// ---- Deleting

// A key whose sub-keys are to be deleted, under HKEY_LOCAL_MACHINE.
class RecurseDeleteKey : public testing::Test {
protected:
    // Opens `path`, created if it is missing.
    void OpenKey(const std::wstring& path, REGSAM view = 0) {
        ASSERT_EQ(key_.CreateOrOpen(HKEY_LOCAL_MACHINE, path, KEY_READ | KEY_WRITE | view),
                  ERROR_SUCCESS);
    }

    test::PrivateRegistry registry_;
    RegistryKey key_;
};

TEST_F(RecurseDeleteKey, RemovesASubKeyWithAllThatIsBelowIt) {
    for (int number = 0; number < 300; ++number) {
        MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2\\3\\" + std::to_wstring(number));
    }
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2\\3\\150\\5");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\sibling");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\10");
    test::PutValue(HKEY_LOCAL_MACHINE, L"top\\1\\2", L"value", test::DwordValue(1));
    OpenKey(L"top");
    EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_SUCCESS);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\10"));
}

TEST_F(RecurseDeleteKey, RemovesTheKeyItselfForAnEmptyName) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    MakeKey(HKEY_LOCAL_MACHINE, L"other");
    OpenKey(L"top");
    EXPECT_EQ(key_.RecurseDeleteKey(L""), ERROR_SUCCESS);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"top"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"other"));
}

TEST_F(RecurseDeleteKey, RemovesKeysOfTheLongestName) {
    const std::wstring longest(255, L'n');
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\" + longest + L"\\" + longest);
    OpenKey(L"top");
    EXPECT_EQ(key_.RecurseDeleteKey(longest), ERROR_SUCCESS);
    EXPECT_EQ(test::SubKeyCount(HKEY_LOCAL_MACHINE, L"top"), 0U);
}

TEST_F(RecurseDeleteKey, OpensSubKeysToReadAndWriteInTheViewOfTheirParent) {
    for (const REGSAM view : {REGSAM{0}, View32}) {
        MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
        OpenKey(L"top", view);
        MockImport<&::RegOpenKeyExW> open;
        EXPECT_CALL(open, Call).Times(testing::AnyNumber());  // the deletion's own
        EXPECT_CALL(open, Call(key_.Get(), StrEq(L"1"), 0, 0x2001F | view, NotNull())).Times(1);
        EXPECT_CALL(open, Call(_, StrEq(L"2"), 0, 0x2001F | view, NotNull())).Times(1);
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_SUCCESS);
    }
}

TEST_F(RecurseDeleteKey, AlwaysAsksForTheFirstSubKey) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\3");
    OpenKey(L"top");
    MockImport<&::RegEnumKeyExW> enumerate;
    EXPECT_CALL(enumerate, Call(_, 0, NotNull(), Pointee(256U), nullptr, nullptr, nullptr, nullptr))
        .Times(5);  // for key 1 three times, for the keys below it once
    EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_SUCCESS);
}

TEST_F(RecurseDeleteKey, PassesAMissingSubKeyOn) {
    OpenKey(L"top");
    EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top"));
}

TEST_F(RecurseDeleteKey, EndsAtTheFirstErrorOfAnEnumeration) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\3");
    OpenKey(L"top");
    {
        MockImport<&::RegEnumKeyExW> enumerate;
        const InSequence order;
        EXPECT_CALL(enumerate, Call).Times(2);  // finds 2 in 1, and nothing in 2
        EXPECT_CALL(enumerate, Call).WillOnce(Return(ERROR_NOT_ENOUGH_MEMORY));
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_NOT_ENOUGH_MEMORY);
    }
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\2"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\3"));
}

TEST_F(RecurseDeleteKey, EndsAtTheFirstSubKeyThatCannotBeOpened) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\3");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\4");
    OpenKey(L"top");
    {
        ImportHook<&::RegOpenKeyExW> open([&](HKEY parent, LPCWSTR path, DWORD options,
                                              REGSAM access, PHKEY key) {
            return path == std::wstring(L"3") ? ERROR_ACCESS_DENIED
                                              : open.Forward(parent, path, options, access, key);
        });
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_ACCESS_DENIED);
    }
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\2"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\3"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\4"));
}

TEST_F(RecurseDeleteKey, EndsAtTheFirstSubKeyThatCannotBeDeleted) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2\\below");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\3");
    OpenKey(L"top");
    {
        // A key that has sub-keys cannot be deleted; those of key 2 are withheld.
        MockImport<&::RegEnumKeyExW> enumerate;
        const InSequence order;
        EXPECT_CALL(enumerate, Call);
        EXPECT_CALL(enumerate, Call).WillOnce(Return(ERROR_NO_MORE_ITEMS));
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_ACCESS_DENIED);
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\2\\below"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\3"));
}

// ---- Deleting within a transaction

class TransactedDeletion : public testing::Test {
protected:
    // Opens the key "top", whose sub-key 1 has no other below it, in the plain way.
    TransactedDeletion() {
        MakeKey(HKEY_LOCAL_MACHINE, L"top\\1");
        EXPECT_EQ(top_.Open(HKEY_LOCAL_MACHINE, L"top", KEY_READ | KEY_WRITE | View32),
                  ERROR_SUCCESS);
    }

    // From now on the transaction has a handle, and opening in it is opening in the plain way.
    void Begin() {
        transaction_ = {.handle = Transaction, .plainAllowed = true};
        ON_CALL(open_, Call)
            .WillByDefault([](HKEY parent, LPCWSTR path, DWORD, REGSAM access, PHKEY key, HANDLE,
                              PVOID) { return ::RegOpenKeyExW(parent, path, 0, access, key); });
    }

    test::PrivateRegistry registry_;
    RegistryTransaction transaction_{.handle = nullptr, .plainAllowed = true};
    RegistryKey top_{&transaction_};
    testing::NiceMock<MockOpenTransacted> open_;
    MockDeleteTransacted delete_;
};

TEST_F(TransactedDeletion, OpensAndDeletesInTheTransactionAndLooksBothUpEachTime) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    Begin();
    EXPECT_CALL(open_, Call(top_.Get(), StrEq(L"1"), 0, 0x2021F, NotNull(), Transaction, nullptr));
    EXPECT_CALL(open_, Call(_, StrEq(L"2"), 0, 0x2021F, NotNull(), Transaction, nullptr));
    {
        const InSequence order;
        EXPECT_CALL(delete_, Call(_, StrEq(L"2"), _, 0, Transaction, nullptr))
            .WillOnce([](HKEY key, LPCWSTR name, REGSAM, DWORD, HANDLE, PVOID) {
                return ::RegDeleteKeyW(key, name);
            });
        EXPECT_CALL(delete_, Call(top_.Get(), StrEq(L"1"), _, 0, Transaction, nullptr))
            .WillOnce(Return(ERROR_INVALID_HANDLE));
    }
    MockImport<&::GetProcAddress> function;
    MockImport<&::GetModuleHandleW> module;
    EXPECT_CALL(module, Call(StrEq(L"Advapi32.dll"))).Times(4).WillRepeatedly(Return(Advapi));
    EXPECT_CALL(function, Call(Advapi, StrEq("RegOpenKeyTransactedW")))
        .Times(2)
        .WillRepeatedly(Return(open_.Address()));
    EXPECT_CALL(function, Call(Advapi, StrEq("RegDeleteKeyTransactedW")))
        .Times(2)
        .WillRepeatedly(Return(delete_.Address()));
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_HANDLE);
}

TEST_F(TransactedDeletion, NeedsTheTransactedFunction) {
    Begin();
    MockImport<&::RegDeleteKeyW> plain;
    EXPECT_CALL(plain, Call).Times(0);
    {
        MockImport<&::GetProcAddress> function;
        EXPECT_CALL(function, Call(_, StrEq("RegOpenKeyTransactedW")))
            .WillOnce(Return(open_.Address()));
        EXPECT_CALL(function, Call(_, StrEq("RegDeleteKeyTransactedW"))).WillOnce(Return(nullptr));
        EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1"));
}

TEST_F(TransactedDeletion, NeedsTheModuleOfTheTransactedFunction) {
    Begin();
    {
        MockImport<&::GetProcAddress> function;
        MockImport<&::GetModuleHandleW> module;
        EXPECT_CALL(function, Call(Advapi, StrEq("RegOpenKeyTransactedW")))
            .WillOnce(Return(open_.Address()));
        EXPECT_CALL(module, Call(StrEq(L"Advapi32.dll")))
            .WillOnce(Return(Advapi))
            .WillOnce(Return(nullptr));
        EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1"));
}

TEST_F(TransactedDeletion, WithoutAHandleIsPlainIfThatIsAllowedAndClosesTheSubKeyFirst) {
    HKEY opened = nullptr;
    ImportHook<&::RegOpenKeyExW> open(
        [&](HKEY parent, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
            const LSTATUS error = open.Forward(parent, path, options, access, key);
            opened = path == std::wstring(L"1") && parent == top_.Get() ? *key : opened;
            return error;
        });
    bool closed = false;
    ImportHook<&::RegCloseKey> close([&](HKEY key) {
        closed = closed || key == opened;
        return close.Forward(key);
    });
    MockImport<&::RegDeleteKeyW> plain;
    EXPECT_CALL(plain, Call(top_.Get(), StrEq(L"1"))).WillOnce([&](HKEY, LPCWSTR) {
        EXPECT_TRUE(closed);
        return ERROR_SUCCESS;
    });
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_SUCCESS);
}

TEST_F(TransactedDeletion, WithoutAHandlePassesTheErrorOfThePlainWayOn) {
    MockImport<&::RegDeleteKeyW> plain;
    EXPECT_CALL(plain, Call).WillOnce(Return(ERROR_ACCESS_DENIED));
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_ACCESS_DENIED);
}

TEST_F(TransactedDeletion, WithoutAHandleIsRefusedUnlessThePlainWayIsAllowed) {
    MockImport<&::RegDeleteKeyW> plain;
    EXPECT_CALL(plain, Call).Times(0);
    {
        // Opening the sub-key is allowed still.
        ImportHook<&::RegEnumKeyExW> enumerate([&](auto...) {
            transaction_.plainAllowed = false;
            return ERROR_NO_MORE_ITEMS;
        });
        EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
    }
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1"));
}

// ---- Deleting with a function that is looked up once in a process: in processes of their own

struct DeleteKeyEx {
    bool moduleLoaded;
    bool present;
};

// Deletes the key "1" twice, in the 32-bit view, and prints the look-ups and deletions that come
// of it, none of which takes place.
void PrintDeletions(DeleteKeyEx system) {
    const test::PrivateRegistry registry;
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1");
    RegistryKey top;
    top.Open(HKEY_LOCAL_MACHINE, L"top", KEY_READ | KEY_WRITE | View32);
    const auto key = [&](HKEY handle) { return handle == top.Get() ? "top" : "another key"; };

    testing::NiceMock<MockDeleteEx> deleteEx;
    ON_CALL(deleteEx, Call).WillByDefault([&](HKEY parent, LPCWSTR name, REGSAM view, DWORD zero) {
        std::fprintf(stderr, "RegDeleteKeyExW(%s, %ls, 0x%lX, %lu)\n", key(parent), name, view,
                     zero);
        return ERROR_ACCESS_DENIED;
    });
    const ImportHook<&::RegDeleteKeyW> plain([&](HKEY parent, LPCWSTR name) {
        std::fprintf(stderr, "RegDeleteKeyW(%s, %ls)\n", key(parent), name);
        return ERROR_WRITE_PROTECT;
    });
    ImportHook<&::GetProcAddress> function([&](HMODULE module, LPCSTR name) {
        if (module != Advapi) {
            return function.Forward(module, name);
        }
        std::fprintf(stderr, "look-up of %s\n", name);
        return system.present ? deleteEx.Address() : nullptr;
    });
    ImportHook<&::GetModuleHandleW> module([&](LPCWSTR name) {
        if (name == nullptr) {
            return module.Forward(name);
        }
        std::fprintf(stderr, "look-up in %ls\n", name);
        return system.moduleLoaded ? Advapi : nullptr;
    });
    for (int time = 0; time < 2; ++time) {
        std::fprintf(stderr, "error %ld\n", top.RecurseDeleteKey(L"1"));
    }
}

void ExpectDeletions(DeleteKeyEx system, const std::string& printed) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            PrintDeletions(system);
            std::exit(0);
        },
        testing::ExitedWithCode(0), testing::HasSubstr(printed));
}

TEST(RecurseDeleteKeyDeathTest, LooksTheFunctionUpOnceAndHandsItTheView) {
    ExpectDeletions({.moduleLoaded = true, .present = true},
                    "look-up in Advapi32.dll\n"
                    "look-up of RegDeleteKeyExW\n"
                    "RegDeleteKeyExW(top, 1, 0x200, 0)\n"
                    "error 5\n"
                    "RegDeleteKeyExW(top, 1, 0x200, 0)\n"
                    "error 5\n");
}

TEST(RecurseDeleteKeyDeathTest, WithoutTheFunctionIsPlainAndRemembersThat) {
    ExpectDeletions({.moduleLoaded = true, .present = false},
                    "look-up in Advapi32.dll\n"
                    "look-up of RegDeleteKeyExW\n"
                    "RegDeleteKeyW(top, 1)\n"
                    "error 19\n"
                    "RegDeleteKeyW(top, 1)\n"
                    "error 19\n");
}

TEST(RecurseDeleteKeyDeathTest, WithoutTheModuleIsPlainAndRemembersThat) {
    ExpectDeletions({.moduleLoaded = false, .present = true},
                    "look-up in Advapi32.dll\n"
                    "RegDeleteKeyW(top, 1)\n"
                    "error 19\n"
                    "RegDeleteKeyW(top, 1)\n"
                    "error 19\n");
}

}  // namespace
