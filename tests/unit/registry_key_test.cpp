#include "registry/registry_key.h"

#include "support/call_log.h"
#include "support/import_hook.h"
#include "support/native_keys.h"
#include "support/on_wine.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>

namespace {

using test::Call;
using test::Calls;
using test::ImportHook;
using test::KeyExists;
using test::MakeKey;
using test::RecordedImport;
using test::Some;
using testing::ElementsAre;
using testing::EndsWith;
using Utils::RegistryKey;
using Utils::RegistryTransaction;

constexpr REGSAM View64 = 0x100;
constexpr REGSAM View32 = 0x200;

// Handles that only replaced functions get.
const auto Transaction = reinterpret_cast<HANDLE>(0x7A7A);
const auto Advapi = reinterpret_cast<HMODULE>(0xAD7A);

// A function that not every system has, returned by a look-up. Records its calls.
template <typename Signature>
class FunctionOfAdvapi;

template <typename Result, typename... Arguments>
class FunctionOfAdvapi<Result(Arguments...)> {
public:
    explicit FunctionOfAdvapi(std::function<Result(Arguments...)> body) : body_(std::move(body)) {
        instance_ = this;
    }

    [[nodiscard]] const Calls& Made() const { return calls_; }
    [[nodiscard]] FARPROC Address() const {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Dispatch));
    }

private:
    static Result Dispatch(Arguments... arguments) {
        instance_->calls_.push_back(Call(arguments...));
        return instance_->body_(arguments...);
    }

    static inline FunctionOfAdvapi* instance_ = nullptr;

    Calls calls_;
    std::function<Result(Arguments...)> body_;
};

using OpenTransacted = FunctionOfAdvapi<decltype(::RegOpenKeyTransactedW)>;
using CreateTransacted = FunctionOfAdvapi<decltype(::RegCreateKeyTransactedW)>;
using DeleteTransacted = FunctionOfAdvapi<decltype(::RegDeleteKeyTransactedW)>;
using DeleteEx = FunctionOfAdvapi<decltype(::RegDeleteKeyExW)>;

LSTATUS OpenRoot(PHKEY key) {
    return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_READ, key);
}

// Answers the look-ups of modules and functions, and records them.
class Lookups {
public:
    explicit Lookups(std::map<std::string, FARPROC> functions, HMODULE module = Advapi)
        : functions_(std::move(functions)), module_(module) {}

    [[nodiscard]] const Calls& Made() const { return made_; }

    // From now on the module is gone.
    void Unload() { module_ = nullptr; }

private:
    Calls made_;
    std::map<std::string, FARPROC> functions_;
    HMODULE module_;
    ImportHook<&::GetProcAddress> findFunction_{[this](HMODULE module, LPCSTR name) {
        made_.push_back(Call(module, name));
        return functions_[name];
    }};
    // The last one: hooking a function needs the platform's own answer.
    ImportHook<&::GetModuleHandleW> findModule_{[this](LPCWSTR name) {
        made_.push_back(Call(name));
        return module_;
    }};
};

// The steps of the product's look-up of one function.
Calls LookupOf(const char* function) {
    return {Call(L"Advapi32.dll"), Call(Advapi, function)};
}

Calls operator+(Calls calls, const Calls& more) {
    calls.insert(calls.end(), more.begin(), more.end());
    return calls;
}

// Replaces the plain functions that open a key; both call `replacement` with the access mask and
// with what is passed on to the platform.
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

void PrintTo(const Opening& opening, std::ostream* out) {
    *out << opening.name;
}

class RegistryKeyOpening : public testing::TestWithParam<Opening> {
protected:
    RegistryKeyOpening() {
        MakeKey(HKEY_LOCAL_MACHINE, L"before");
        MakeKey(HKEY_LOCAL_MACHINE, L"after");
    }

    static LSTATUS Open(RegistryKey& key, const std::wstring& path, REGSAM access) {
        return (key.*GetParam().open)(HKEY_LOCAL_MACHINE, path, access);
    }

    // Opens a key, makes opening another fail, and expects no change.
    static void ExpectNoChange(RegistryKey& key, LSTATUS error,
                               const std::function<LSTATUS()>& openAnother) {
        const HKEY handle = key.Get();
        const REGSAM flags = key.ViewFlags();
        EXPECT_NE(handle, nullptr);
        EXPECT_NE(flags, 0U);
        const RecordedImport<&::RegCloseKey> close;
        EXPECT_EQ(openAnother(), error);
        EXPECT_EQ(close.Made(), Calls{});
        EXPECT_EQ(key.Get(), handle);
        EXPECT_EQ(key.ViewFlags(), flags);
    }

    // Expects that nothing is opened in a transaction if there is only this module, and these
    // look-ups.
    static void ExpectNoTransaction(HMODULE module, const Calls& lookups) {
        RegistryTransaction transaction{.handle = nullptr, .plainAllowed = true};
        RegistryKey key(&transaction);
        Open(key, L"before", KEY_READ | View64);
        transaction.handle = Transaction;
        ExpectNoChange(key, ERROR_INVALID_FUNCTION, [&] {
            const Lookups made({}, module);
            const LSTATUS error = Open(key, L"after", KEY_READ);
            EXPECT_EQ(made.Made(), lookups);
            return error;
        });
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
    const OpeningHook allowed(
        [](REGSAM, const OpeningHook::Forward& forward) { return forward(KEY_READ); });
    for (const REGSAM view : {REGSAM{0}, View64, View32, View32 | View64}) {
        RegistryKey key;
        EXPECT_EQ(Open(key, L"before", 0xFFFFFCFF | view), ERROR_SUCCESS);
        EXPECT_EQ(key.ViewFlags(), view);
    }
}

TEST_P(RegistryKeyOpening, ChangesNothingOnFailure) {
    RegistryKey key;
    Open(key, L"before", KEY_READ | View64);
    const OpeningHook failure([](auto...) { return ERROR_ACCESS_DENIED; });
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
    ExpectNoTransaction(Advapi, LookupOf(GetParam().transacted));
}

TEST_P(RegistryKeyOpening, InATransactionNeedsTheModuleOfTheTransactedFunction) {
    ExpectNoTransaction(nullptr, {Call(L"Advapi32.dll")});
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
    const RecordedImport<&::RegCloseKey> close;
    {
        const RegistryKey key;
        EXPECT_EQ(key.Get(), nullptr);
        EXPECT_EQ(key.ViewFlags(), 0U);
    }
    EXPECT_EQ(close.Made(), Calls{});
}

TEST(RegistryKey, OpensWithTheMaskAndNoOptions) {
    const RecordedImport<&::RegOpenKeyExW> open;
    RegistryKey key;
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"FinasetTests\\missing", KEY_READ | View32),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), 0U);
    EXPECT_EQ(open.Made(),
              Calls{Call(HKEY_CURRENT_USER, L"FinasetTests\\missing", 0, 0x20219, Some)});
}

TEST(RegistryKey, CreatesWithoutClassOptionsAndSecurity) {
    const test::PrivateRegistry registry;
    for (const char* time : {"missing at first", "there by now"}) {
        SCOPED_TRACE(time);
        const RecordedImport<&::RegCreateKeyExW> create;
        RegistryKey key;
        EXPECT_EQ(key.CreateOrOpen(HKEY_LOCAL_MACHINE, L"a\\b", KEY_WRITE | View32), ERROR_SUCCESS);
        EXPECT_EQ(key.ViewFlags(), View32);
        EXPECT_EQ(create.Made(), Calls{Call(HKEY_LOCAL_MACHINE, L"a\\b", 0, nullptr, 0, 0x20206,
                                            nullptr, Some, Some)});
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"a\\b"));
}

TEST(RegistryKey, OpensInTheTransactionAndLooksTheFunctionUpEachTime) {
    const test::PrivateRegistry registry;
    const RegistryTransaction transaction{.handle = Transaction, .plainAllowed = false};
    LSTATUS error = ERROR_ACCESS_DENIED;
    const OpenTransacted open([&](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY opened, HANDLE, PVOID) {
        return error != ERROR_SUCCESS ? error : OpenRoot(opened);
    });
    const Lookups lookups({{"RegOpenKeyTransactedW", open.Address()}});
    RegistryKey key(&transaction);
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"a\\b", 0x20319), error);
    EXPECT_EQ(key.Get(), nullptr);
    error = ERROR_SUCCESS;
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"a\\b", 0x20319), error);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), View32 | View64);
    EXPECT_EQ(open.Made(),
              Calls(2, Call(HKEY_LOCAL_MACHINE, L"a\\b", 0, 0x20319, Some, Transaction, nullptr)));
    EXPECT_EQ(lookups.Made(),
              LookupOf("RegOpenKeyTransactedW") + LookupOf("RegOpenKeyTransactedW"));
}

TEST(RegistryKey, CreatesInTheTransactionAndLooksTheFunctionUpEachTime) {
    const test::PrivateRegistry registry;
    const RegistryTransaction transaction{.handle = Transaction, .plainAllowed = false};
    LSTATUS error = ERROR_ACCESS_DENIED;
    const CreateTransacted create(
        [&](HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, auto*, PHKEY opened, DWORD*, HANDLE,
            PVOID) { return error != ERROR_SUCCESS ? error : OpenRoot(opened); });
    const Lookups lookups({{"RegCreateKeyTransactedW", create.Address()}});
    RegistryKey key(&transaction);
    EXPECT_EQ(key.CreateOrOpen(HKEY_LOCAL_MACHINE, L"a\\b", 0x20306), error);
    EXPECT_EQ(key.Get(), nullptr);
    error = ERROR_SUCCESS;
    EXPECT_EQ(key.CreateOrOpen(HKEY_LOCAL_MACHINE, L"a\\b", 0x20306), error);
    EXPECT_NE(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), View32 | View64);
    EXPECT_EQ(create.Made(), Calls(2, Call(HKEY_LOCAL_MACHINE, L"a\\b", 0, nullptr, 0, 0x20306,
                                           nullptr, Some, Some, Transaction, nullptr)));
    EXPECT_EQ(lookups.Made(),
              LookupOf("RegCreateKeyTransactedW") + LookupOf("RegCreateKeyTransactedW"));
}

// ---- Closing

TEST(RegistryKey, ClosesOnceAndHoldsNothingAfterwards) {
    const test::PrivateRegistry registry;
    const RecordedImport<&::RegCloseKey> close;
    RegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"", KEY_READ | View64), ERROR_SUCCESS);
    const HKEY handle = key.Get();
    key.Close();
    EXPECT_EQ(key.Get(), nullptr);
    EXPECT_EQ(key.ViewFlags(), 0U);
    key.Close();
    EXPECT_EQ(close.Made(), Calls{Call(handle)});
}

TEST(RegistryKey, ClosesAtTheEndOfItsScope) {
    const test::PrivateRegistry registry;
    const RecordedImport<&::RegCloseKey> close;
    HKEY handle = nullptr;
    {
        RegistryKey key;
        ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"", KEY_READ), ERROR_SUCCESS);
        handle = key.Get();
    }
    EXPECT_EQ(close.Made(), Calls{Call(handle)});
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
        const RecordedImport<&::RegOpenKeyExW> open;
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_SUCCESS);
        // There may be more, from the platform's own deletion.
        EXPECT_THAT(open.Made(), testing::IsSupersetOf<testing::Matcher<std::string>>(
                                     {Call(key_.Get(), L"1", 0, 0x2001F | view, Some),
                                      EndsWith(Call(L"2", 0, 0x2001F | view, Some))}));
    }
}

TEST_F(RecurseDeleteKey, AlwaysAsksForTheFirstSubKeyWithRoomForTheLongestName) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\3");
    OpenKey(L"top");
    Calls made;
    ImportHook<&::RegEnumKeyExW> enumerate(
        [&](HKEY key, DWORD index, LPWSTR name, LPDWORD length, auto... unused) {
            made.push_back(Call(index, *length, unused...));
            return enumerate.Forward(key, index, name, length, unused...);
        });
    EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_SUCCESS);
    // For key 1 three times, for each of the keys below it once.
    EXPECT_EQ(made, Calls(5, Call(0, 256, nullptr, nullptr, nullptr, nullptr)));
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
        int calls = 0;
        ImportHook<&::RegEnumKeyExW> enumerate([&](auto... arguments) {
            // Finds 2 in 1, then nothing in 2.
            return ++calls <= 2 ? enumerate.Forward(arguments...) : ERROR_NOT_ENOUGH_MEMORY;
        });
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
        ImportHook<&::RegOpenKeyExW> open([&](HKEY parent, LPCWSTR path, auto... more) {
            return path == std::wstring(L"3") ? ERROR_ACCESS_DENIED
                                              : open.Forward(parent, path, more...);
        });
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_ACCESS_DENIED);
    }
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\2"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\3"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\4"));
}

TEST_F(RecurseDeleteKey, TakesOnlyTheEnumerationsWordForItsEnd) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    OpenKey(L"top");
    for (const wchar_t* name : {L"1", L"2"}) {
        ImportHook<&::RegOpenKeyExW> open([&](HKEY parent, LPCWSTR path, auto... more) {
            return path == std::wstring(name) ? ERROR_NO_MORE_ITEMS
                                              : open.Forward(parent, path, more...);
        });
        const RecordedImport<&::RegEnumKeyExW> enumerate;
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_NO_MORE_ITEMS);
        EXPECT_THAT(enumerate.Made(), testing::SizeIs(name == std::wstring(L"1") ? 0 : 1));
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\2"));
}

TEST_F(RecurseDeleteKey, EndsAtTheFirstSubKeyThatCannotBeDeleted) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2\\below");
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\3");
    OpenKey(L"top");
    {
        // A key with sub-keys cannot be deleted; those of key 2 are hidden.
        int calls = 0;
        ImportHook<&::RegEnumKeyExW> enumerate([&](auto... arguments) {
            return ++calls == 2 ? ERROR_NO_MORE_ITEMS : enumerate.Forward(arguments...);
        });
        EXPECT_EQ(key_.RecurseDeleteKey(L"1"), ERROR_ACCESS_DENIED);
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\2\\below"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1\\3"));
}

// ---- Deleting in a damaged registry

// Below the key "top", which it deletes again: damaged keys would disturb other tests.
class DamagedRegistry : public RecurseDeleteKey {
protected:
    DamagedRegistry() {
        OpenKey(L"top");
        EXPECT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"top", 0, KEY_ALL_ACCESS, &top_),
                  ERROR_SUCCESS);
    }
    ~DamagedRegistry() override {
        if (KeyExists(HKEY_LOCAL_MACHINE, L"top")) {
            test::RemoveNativeTree(top_);
        }
        ::RegCloseKey(top_);
    }

    // Makes a tree below "top" with so many levels, and opens the key at its end.
    HKEY MakeLevels(int levels) {
        HKEY last = nullptr;
        ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"top", 0, KEY_ALL_ACCESS, &last);
        for (int level = 0; level < levels; ++level) {
            const HKEY next = test::MakeNativeKey(last, L"level");
            ::RegCloseKey(last);
            last = next;
        }
        return last;
    }

    HKEY top_ = nullptr;
};

TEST_F(DamagedRegistry, EndsAtAKeyThatSeemsToHaveNoName) {
    for (const std::wstring& name : {std::wstring(1, L'\0'), L'\0' + std::wstring(L"name")}) {
        ::RegCloseKey(test::MakeNativeKey(top_, name));
        EXPECT_EQ(key_.RecurseDeleteKey(L""), ERROR_INVALID_DATA);
    }
    EXPECT_EQ(test::SubKeyCount(HKEY_LOCAL_MACHINE, L"top"), 2U);
}

TEST_F(DamagedRegistry, EndsAtANameThatIsThatOfNoOtherKey) {
    ::RegCloseKey(test::MakeNativeKey(top_, L"a" + std::wstring(1, L'\0') + L"b"));
    EXPECT_EQ(key_.RecurseDeleteKey(L""), ERROR_FILE_NOT_FOUND);
}

TEST_F(DamagedRegistry, EndsAtALinkThatLeadsBackUpTheTree) {
    const HKEY last = MakeLevels(3);
    test::MakeLinkedKey(last, L"link", top_);
    ::RegCloseKey(last);
    EXPECT_EQ(key_.RecurseDeleteKey(L""), ERROR_INVALID_DATA);
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\level\\level\\level"));
}

// As many as there can be on any system, which on Windows include those above the key that is
// deleted.
TEST_F(DamagedRegistry, IsNoneForATreeOf512Levels) {
    ::RegCloseKey(MakeLevels(test::OnWine() ? 512 : 490));
    EXPECT_EQ(key_.RecurseDeleteKey(L""), ERROR_SUCCESS);
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"top"));
}

TEST_F(DamagedRegistry, HasATreeOfMoreLevels) {
    if (!test::OnWine()) {
        GTEST_SKIP() << "on Windows only a link makes it seem that there are more levels";
    }
    const HKEY last = MakeLevels(512);
    const HKEY another = test::MakeNativeKey(last, L"level");
    ::RegCloseKey(another);
    ::RegCloseKey(last);
    EXPECT_EQ(key_.RecurseDeleteKey(L""), ERROR_INVALID_DATA);
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\level"));
}

// ---- Deleting within a transaction

class TransactedDeletion : public testing::Test {
protected:
    // Opens the key "top", whose sub-key 1 has none below it, without the transaction.
    TransactedDeletion() {
        MakeKey(HKEY_LOCAL_MACHINE, L"top\\1");
        EXPECT_EQ(top_.Open(HKEY_LOCAL_MACHINE, L"top", KEY_READ | KEY_WRITE | View32),
                  ERROR_SUCCESS);
    }

    test::PrivateRegistry registry_;
    RegistryTransaction transaction_{.handle = nullptr, .plainAllowed = true};
    RegistryKey top_{&transaction_};
    // Opening in the transaction opens plainly.
    OpenTransacted open_{[](HKEY parent, LPCWSTR path, DWORD, REGSAM access, PHKEY key, HANDLE,
                            PVOID) { return ::RegOpenKeyExW(parent, path, 0, access, key); }};
};

TEST_F(TransactedDeletion, OpensAndDeletesInTheTransactionAndLooksBothUpEachTime) {
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1\\2");
    transaction_.handle = Transaction;
    Calls made;
    const DeleteTransacted deletion(
        [&](HKEY key, LPCWSTR name, REGSAM access, DWORD reserved, HANDLE transaction, PVOID more) {
            made.push_back(Call(name, access, reserved, transaction, more));
            return key == top_.Get() ? ERROR_INVALID_HANDLE : ::RegDeleteKeyW(key, name);
        });
    const Lookups lookups({{"RegOpenKeyTransactedW", open_.Address()},
                           {"RegDeleteKeyTransactedW", deletion.Address()}});
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_HANDLE);
    EXPECT_THAT(open_.Made(),
                ElementsAre(Call(top_.Get(), L"1", 0, 0x2021F, Some, Transaction, nullptr),
                            EndsWith(Call(L"2", 0, 0x2021F, Some, Transaction, nullptr))));
    // The view does not apply to a transacted deletion.
    EXPECT_THAT(made, ElementsAre(Call(L"2", 0, 0, Transaction, nullptr),
                                  Call(L"1", 0, 0, Transaction, nullptr)));
    EXPECT_EQ(lookups.Made(),
              LookupOf("RegOpenKeyTransactedW") + LookupOf("RegOpenKeyTransactedW") +
                  LookupOf("RegDeleteKeyTransactedW") + LookupOf("RegDeleteKeyTransactedW"));
}

TEST_F(TransactedDeletion, NeedsTheTransactedFunction) {
    transaction_ = {.handle = Transaction, .plainAllowed = true};
    const RecordedImport<&::RegDeleteKeyW> plain;
    {
        const Lookups lookups({{"RegOpenKeyTransactedW", open_.Address()}});
        EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
        EXPECT_EQ(lookups.Made(),
                  LookupOf("RegOpenKeyTransactedW") + LookupOf("RegDeleteKeyTransactedW"));
    }
    EXPECT_EQ(plain.Made(), Calls{});
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1"));
}

TEST_F(TransactedDeletion, NeedsTheModuleOfTheTransactedFunction) {
    transaction_ = {.handle = Transaction, .plainAllowed = true};
    const RecordedImport<&::RegDeleteKeyW> plain;
    {
        Lookups* known = nullptr;
        const ImportHook<&::RegEnumKeyExW> enumerate([&](auto...) {
            known->Unload();  // after the sub-key was opened
            return ERROR_NO_MORE_ITEMS;
        });
        Lookups lookups({{"RegOpenKeyTransactedW", open_.Address()}});
        known = &lookups;
        EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
        EXPECT_EQ(lookups.Made(), LookupOf("RegOpenKeyTransactedW") + Calls{Call(L"Advapi32.dll")});
    }
    EXPECT_EQ(plain.Made(), Calls{});
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
    const RecordedImport<&::RegCloseKey> close;
    const RecordedImport<&::RegDeleteKeyW> plain([&](HKEY, LPCWSTR) {
        EXPECT_THAT(close.Made(), ElementsAre(Call(opened)));
        return ERROR_SUCCESS;
    });
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_SUCCESS);
    EXPECT_EQ(plain.Made(), Calls{Call(top_.Get(), L"1")});
}

TEST_F(TransactedDeletion, WithoutAHandlePassesTheErrorOfThePlainWayOn) {
    const ImportHook<&::RegDeleteKeyW> plain([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_ACCESS_DENIED);
}

TEST_F(TransactedDeletion, WithoutAHandleIsRefusedUnlessThePlainWayIsAllowed) {
    const RecordedImport<&::RegDeleteKeyW> plain;
    {
        // Opening the sub-key is still allowed.
        ImportHook<&::RegEnumKeyExW> enumerate([&](auto...) {
            transaction_.plainAllowed = false;
            return ERROR_NO_MORE_ITEMS;
        });
        EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
    }
    EXPECT_EQ(top_.RecurseDeleteKey(L"1"), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(plain.Made(), Calls{});
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"top\\1"));
}

// ---- Deleting with a function that is looked up once in a process: in processes of their own

struct DeleteKeyEx {
    bool moduleLoaded;
    bool present;
};

// Deletes the key "1" twice, in the 32-bit view, and prints the resulting look-ups and deletions,
// none of which takes place.
void PrintDeletions(DeleteKeyEx system) {
    const test::PrivateRegistry registry;
    MakeKey(HKEY_LOCAL_MACHINE, L"top\\1");
    RegistryKey top;
    top.Open(HKEY_LOCAL_MACHINE, L"top", KEY_READ | KEY_WRITE | View32);
    const auto key = [&](HKEY handle) { return handle == top.Get() ? "top" : "another key"; };

    const DeleteEx deleteEx([&](HKEY parent, LPCWSTR name, REGSAM view, DWORD reserved) {
        std::fprintf(stderr, "RegDeleteKeyExW(%s, %ls, 0x%lX, %lu)\n", key(parent), name, view,
                     reserved);
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

TEST(RecurseDeleteKeyDeathTest, LooksTheFunctionUpOnceAndPassesItTheView) {
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
