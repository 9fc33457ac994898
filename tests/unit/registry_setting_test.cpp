#include "registry/registry_setting.h"

#include "support/call_log.h"
#include "support/import_hook.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::DwordValue;
using test::ImportHook;
using test::KeyExists;
using test::MakeKey;
using test::PrivateRegistry;
using test::PutValue;
using test::RecordedImport;
using test::RegistryValue;
using test::Some;
using test::TextBytes;
using test::TextValue;
using test::ValueOf;
using testing::ElementsAre;
using testing::EndsWith;

const std::wstring Key = L"Software\\key";

void PutHere(const RegistryValue& value) {
    PutValue(HKEY_LOCAL_MACHINE, Key, L"name", value);
}

std::optional<RegistryValue> ValueHere() {
    return ValueOf(HKEY_LOCAL_MACHINE, Key, L"name");
}

// From REG_NONE to REG_QWORD; the last one is unknown to the platform.
constexpr DWORD AllTypes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0x1234};
constexpr DWORD TextTypes[] = {REG_SZ, REG_EXPAND_SZ};

bool IsText(DWORD type) {
    return std::ranges::find(TextTypes, type) != std::end(TextTypes);
}

// A record without data; without a name, one that stands for the whole key.
RegistrySetting Record(HKEY root, const std::wstring& path, const std::wstring& name,
                       bool view32 = false) {
    RegistrySetting record;
    record.root = root;
    record.keyPath = path;
    record.valueName = name;
    record.view32 = view32;
    return record;
}

// The calls that create or open the key once in the local machine.
Calls OneCreation(REGSAM access) {
    return {Call(HKEY_LOCAL_MACHINE, Key, 0, nullptr, 0, access, nullptr, Some, Some)};
}

// The calls that open the key once to read, in the default view.
Calls OneOpeningToRead() {
    return {Call(HKEY_LOCAL_MACHINE, Key, 0, 0x20019, Some)};
}

// Records the queries of values: name, reserved argument, buffer and, if there is one, its size.
// The first one goes to `first`, if given, which may forward it.
class Queries {
public:
    using Hook = ImportHook<&::RegQueryValueExW>;
    using Query = std::function<LSTATUS()>;

    explicit Queries(std::function<LSTATUS(const Query& forward, DWORD& size)> first = {})
        : first_(std::move(first)) {}

    [[nodiscard]] const Calls& Made() const { return made_; }

private:
    std::function<LSTATUS(const Query& forward, DWORD& size)> first_;
    Calls made_;
    Hook hook_{[this](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                      LPDWORD size) {
        made_.push_back(data == nullptr ? Call(name, reserved, data)
                                        : Call(name, reserved, data, *size));
        const Query forward = [&] { return hook_.Forward(key, name, reserved, type, data, size); };
        return made_.size() == 1 && first_ ? first_(forward, *size) : forward();
    }};
};

// With a registry of the test's own.
class PrivateSettings : public testing::Test {
    PrivateRegistry registry_;
};

using GetDwordWithDefaultTest = PrivateSettings;
using GetStringSettingTest = PrivateSettings;
using DeleteSettingTest = PrivateSettings;

// ---- GetDwordWithDefault

TEST_F(GetDwordWithDefaultTest, ReadsANumber) {
    for (const DWORD number : {0UL, 1UL, 0x12345678UL, 4294967295UL}) {
        PutHere(DwordValue(number));
        EXPECT_EQ(GetDwordWithDefault(HKEY_LOCAL_MACHINE, Key, L"name", 7), number);
    }
}

TEST_F(GetDwordWithDefaultTest, IgnoresTheRoot) {
    PutHere(DwordValue(42));
    EXPECT_EQ(GetDwordWithDefault(HKEY_CURRENT_USER, Key, L"name", 7), 42U);
    EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"name", 7), 42U);
}

TEST_F(GetDwordWithDefaultTest, OpensToReadInTheDefaultView) {
    PutHere(DwordValue(42));
    const RecordedImport<&::RegOpenKeyExW> open;
    EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"name", 7), 42U);
    EXPECT_EQ(open.Made(), OneOpeningToRead());
}

TEST_F(GetDwordWithDefaultTest, QueriesOnceInto4Bytes) {
    PutHere(DwordValue(42));
    const Queries queries;
    EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"name", 7), 42U);
    EXPECT_EQ(queries.Made(), Calls{Call(L"name", nullptr, Some, 4)});
}

TEST_F(GetDwordWithDefaultTest, GivesTheDefaultIfNothingIsThere) {
    EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"name", 7), 7U);
    MakeKey(HKEY_LOCAL_MACHINE, Key);
    EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"name", 4294967295), 4294967295U);
    PutHere(DwordValue(42));
    EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"other", 7), 7U);
}

TEST_F(GetDwordWithDefaultTest, GivesTheDefaultForEveryOtherTypeAndSize) {
    for (const DWORD type : AllTypes) {
        for (const std::size_t size : {0U, 1U, 3U, 4U, 5U, 8U}) {
            if (type == REG_DWORD && size == sizeof(DWORD)) {
                continue;
            }
            SCOPED_TRACE(testing::Message() << size << " bytes of type " << type);
            PutHere({type, std::vector<BYTE>(size, 1)});
            EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"name", 7), 7U);
        }
    }
}

TEST_F(GetDwordWithDefaultTest, GivesTheDefaultIfTheQueryFailsEvenIfAllElseFits) {
    PutHere(DwordValue(42));
    ImportHook<&::RegQueryValueExW> query([&](auto... arguments) {
        EXPECT_EQ(query.Forward(arguments...), ERROR_SUCCESS);
        return ERROR_ACCESS_DENIED;
    });
    EXPECT_EQ(GetDwordWithDefault(nullptr, Key, L"name", 7), 7U);
}

// ---- GetStringSetting

// The text read from the value "name", or the error.
struct Reading {
    LSTATUS error = ERROR_SUCCESS;
    std::wstring out;

    bool operator==(const Reading&) const = default;
};

void PrintTo(const Reading& reading, std::ostream* out) {
    *out << "error " << reading.error << ", " << reading.out.size() << " characters "
         << testing::PrintToString(reading.out.substr(0, 40));
}

const std::wstring Before = L"as it was";

Reading Read(HKEY root = HKEY_LOCAL_MACHINE) {
    Reading reading{.error = ERROR_SUCCESS, .out = Before};
    reading.error = GetStringSetting(root, Key, L"name", reading.out);
    return reading;
}

Reading Success(const std::wstring& text) {
    return {.error = ERROR_SUCCESS, .out = text};
}

// An error that leaves the output as it was.
Reading Failure(LSTATUS error) {
    return {.error = error, .out = Before};
}

TEST_F(GetStringSettingTest, ReadsATextOfAnyLength) {
    for (const std::size_t length : {1U, 5U, 4000U, 100000U}) {
        const std::wstring text(length, L'\u00E4');
        PutHere(TextValue(text));
        EXPECT_EQ(Read(), Success(text));
    }
}

TEST_F(GetStringSettingTest, LeavesVariablesUnexpanded) {
    PutHere(TextValue(L"%windir%\\a", REG_EXPAND_SZ));
    EXPECT_EQ(Read(), Success(L"%windir%\\a"));
}

TEST_F(GetStringSettingTest, EndsAtTheFirstZero) {
    PutHere(TextValue(std::wstring(L"text\0more", 9)));
    EXPECT_EQ(Read(), Success(L"text"));
    PutHere(TextValue(std::wstring(L"text\0", 5)));
    EXPECT_EQ(Read(), Success(L"text"));
    PutHere(TextValue(std::wstring(L"\0more", 5)));
    EXPECT_EQ(Read(), Success(L""));
}

TEST_F(GetStringSettingTest, IsEmptyForNothingButTheTerminatingZero) {
    PutHere(TextValue(L""));
    EXPECT_EQ(Read(), Success(L""));
}

TEST_F(GetStringSettingTest, SucceedsAndLeavesTheOutputForAValueOf0Bytes) {
    for (const DWORD type : TextTypes) {
        PutHere({type, {}});
        EXPECT_EQ(Read(), Success(Before));
    }
}

TEST_F(GetStringSettingTest, RefusesEveryOtherType) {
    for (const DWORD type : AllTypes) {
        if (IsText(type)) {
            continue;
        }
        SCOPED_TRACE(type);
        PutHere(TextValue(L"text", type));
        EXPECT_EQ(Read(), Failure(13));
        PutHere({type, {}});
        EXPECT_EQ(Read(), Failure(13));
    }
}

TEST_F(GetStringSettingTest, RefusesAValueWithoutATerminatingZero) {
    for (const DWORD type : TextTypes) {
        for (const std::wstring& text :
             {std::wstring(L"t"), std::wstring(L"text"), std::wstring(L"te\0xt", 5)}) {
            PutHere({type, TextBytes(text)});
            ASSERT_EQ(ValueHere()->bytes, TextBytes(text)) << "the platform added a zero";
            EXPECT_EQ(Read(), Failure(13));
        }
    }
}

TEST_F(GetStringSettingTest, RefusesAnOddNumberOfBytes) {
    for (const std::vector<BYTE>& bytes :
         {std::vector<BYTE>{0}, {'a', 0, 0}, {'a', 0, 0, 0, 0}, {'a', 0, 'b', 0, 0}}) {
        PutHere({REG_SZ, bytes});
        ASSERT_EQ(ValueHere()->bytes, bytes);
        EXPECT_EQ(Read(), Failure(13));
    }
}

TEST_F(GetStringSettingTest, IgnoresTheRoot) {
    PutHere(TextValue(L"text"));
    EXPECT_EQ(Read(HKEY_CURRENT_USER), Success(L"text"));
    EXPECT_EQ(Read(nullptr), Success(L"text"));
}

TEST_F(GetStringSettingTest, OpensToReadInTheDefaultView) {
    PutHere(TextValue(L"text"));
    const RecordedImport<&::RegOpenKeyExW> open;
    EXPECT_EQ(Read(nullptr), Success(L"text"));
    EXPECT_EQ(open.Made(), OneOpeningToRead());
}

TEST_F(GetStringSettingTest, PassesOnThatNothingIsThere) {
    EXPECT_EQ(Read(), Failure(ERROR_FILE_NOT_FOUND));
    MakeKey(HKEY_LOCAL_MACHINE, Key);
    EXPECT_EQ(Read(), Failure(ERROR_FILE_NOT_FOUND));
}

TEST_F(GetStringSettingTest, PassesTheErrorOfOpeningOn) {
    const ImportHook<&::RegOpenKeyExW> open([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(Read(), Failure(ERROR_ACCESS_DENIED));
}

// ---- GetStringSetting asks twice: for the size, then for the text

const std::string SizeQuery = Call(L"name", nullptr, nullptr);

std::string TextQuery(DWORD size) {
    return Call(L"name", nullptr, Some, size);
}

// Reads the text "text", which `value` replaces after the first query.
Reading ReadWhileItChangesTo(const RegistryValue& value) {
    PutHere(TextValue(L"text"));
    const Queries queries([&](const Queries::Query& forward, DWORD& /*size*/) {
        const LSTATUS error = forward();
        PutHere(value);
        return error;
    });
    Reading reading = Read();
    EXPECT_THAT(queries.Made(), ElementsAre(SizeQuery, TextQuery(10)));
    return reading;
}

TEST_F(GetStringSettingTest, AsksForTheSizeAndThenIntoABufferOfThatSizeInBytes) {
    PutHere(TextValue(L"text"));
    const Queries queries;
    EXPECT_EQ(Read(), Success(L"text"));
    EXPECT_THAT(queries.Made(), ElementsAre(SizeQuery, TextQuery(10)));
}

TEST_F(GetStringSettingTest, OffersRoomForAnOddNumberOfBytes) {
    PutHere({REG_SZ, {'a', 0, 0, 0, 0}});
    const Queries queries;
    EXPECT_EQ(Read(), Failure(13));
    EXPECT_THAT(queries.Made(), ElementsAre(SizeQuery, TextQuery(6)));
}

TEST_F(GetStringSettingTest, TakesTheSizeThatComesWithMoreData) {
    PutHere(TextValue(L"text"));
    const Queries queries([](const Queries::Query& forward, DWORD& /*size*/) {
        forward();
        return ERROR_MORE_DATA;
    });
    EXPECT_EQ(Read(), Success(L"text"));
    EXPECT_THAT(queries.Made(), ElementsAre(SizeQuery, TextQuery(10)));
}

TEST_F(GetStringSettingTest, IgnoresASizeThatComesWithAnotherErrorAndStillAsksAgain) {
    PutHere(TextValue(L""));
    const Queries queries([](const Queries::Query& /*forward*/, DWORD& size) {
        size = 1000;
        return ERROR_ACCESS_DENIED;
    });
    EXPECT_EQ(Read(), Success(L""));
    EXPECT_THAT(queries.Made(), ElementsAre(SizeQuery, TextQuery(2)));
}

TEST_F(GetStringSettingTest, PassesTheErrorOfTheSecondQueryOn) {
    PutHere(TextValue(L"text"));
    ImportHook<&::RegQueryValueExW> query(
        [&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) {
            const LSTATUS error = query.Forward(key, name, reserved, type, data, size);
            return data == nullptr ? error : ERROR_ACCESS_DENIED;
        });
    EXPECT_EQ(Read(), Failure(ERROR_ACCESS_DENIED));
}

TEST_F(GetStringSettingTest, PassesOnThatTheValueHasGrown) {
    EXPECT_EQ(ReadWhileItChangesTo(TextValue(L"text of more characters")),
              Failure(ERROR_MORE_DATA));
}

TEST_F(GetStringSettingTest, ReadsAValueThatHasShrunk) {
    EXPECT_EQ(ReadWhileItChangesTo(TextValue(L"te")), Success(L"te"));
    EXPECT_EQ(ReadWhileItChangesTo({REG_SZ, {}}), Success(Before));
}

TEST_F(GetStringSettingTest, IgnoresZerosOfTheBufferAfterAShrunkValue) {
    EXPECT_EQ(ReadWhileItChangesTo({REG_SZ, TextBytes(L"te")}), Failure(13));
}

// ---- SetDwordSetting, SetStringSetting

// A function that writes a setting, writing one value, and what it passes to the platform.
struct Setter {
    const char* name;
    bool (*set)(HKEY root, const std::wstring& path, bool view32);
    DWORD type;
    DWORD size;
    RegistryValue value;
};

void PrintTo(const Setter& setter, std::ostream* out) {
    *out << setter.name;
}

class SettingWrites : public PrivateSettings, public testing::WithParamInterface<Setter> {
protected:
    static bool Set(bool view32 = false) { return GetParam().set(HKEY_LOCAL_MACHINE, Key, view32); }
};

INSTANTIATE_TEST_SUITE_P(
    Both, SettingWrites,
    testing::Values(Setter{"SetDwordSetting",
                           [](HKEY root, const std::wstring& path, bool view32) {
                               return SetDwordSetting(root, path, L"name", 1, view32);
                           },
                           REG_DWORD, 4, DwordValue(1)},
                    Setter{"SetStringSetting",
                           [](HKEY root, const std::wstring& path, bool view32) {
                               return SetStringSetting(root, path, L"name", L"text", view32);
                           },
                           REG_SZ, 10, TextValue(L"text")}),
    testing::PrintToStringParamName());

TEST_P(SettingWrites, PassThePlatformTheBytesOfTheWholeValue) {
    const RecordedImport<&::RegSetValueExW> set;
    EXPECT_TRUE(Set());
    EXPECT_THAT(set.Made(),
                ElementsAre(EndsWith(Call(L"name", 0, GetParam().type, Some, GetParam().size))));
}

TEST_P(SettingWrites, CreateTheKeyWithTheRightToWriteInTheView) {
    for (const bool view32 : {false, true}) {
        const RecordedImport<&::RegCreateKeyExW> create;
        EXPECT_TRUE(Set(view32));
        EXPECT_EQ(create.Made(), OneCreation(view32 ? 0x20206 : 0x20006));
    }
}

TEST_P(SettingWrites, FailIfThePlatformFails) {
    {
        const ImportHook<&::RegCreateKeyExW> create([](auto...) { return ERROR_ACCESS_DENIED; });
        EXPECT_FALSE(Set());
    }
    const ImportHook<&::RegSetValueExW> set([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_FALSE(Set());
}

TEST_P(SettingWrites, GoBelowTheRootTheyAreGiven) {
    const std::wstring path = L"Software\\FinasetTests key";
    EXPECT_TRUE(GetParam().set(HKEY_CURRENT_USER, path, false));
    EXPECT_EQ(ValueOf(HKEY_CURRENT_USER, path, L"name"), GetParam().value);
    EXPECT_TRUE(DeleteSetting(Record(HKEY_CURRENT_USER, path, L"")));
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, path));
}

using SetDwordSettingTest = PrivateSettings;
using SetStringSettingTest = PrivateSettings;

TEST_F(SetDwordSettingTest, WritesTheFourBytesAndTheKeyThatIsMissing) {
    for (const DWORD number : {0UL, 0x12345678UL, 4294967295UL}) {
        EXPECT_TRUE(SetDwordSetting(HKEY_LOCAL_MACHINE, Key, L"name", number, false));
        EXPECT_EQ(ValueHere(), DwordValue(number));
    }
}

TEST_F(SetStringSettingTest, WritesTheTextWithItsTerminatingZeroAndTheKeyThatIsMissing) {
    for (const std::wstring& text :
         {std::wstring(L"%windir%\\a"), std::wstring(), std::wstring(4000, L'\u00E4')}) {
        EXPECT_TRUE(SetStringSetting(HKEY_LOCAL_MACHINE, Key, L"name", text.c_str(), false));
        EXPECT_EQ(ValueHere(), TextValue(text));
    }
}

TEST_F(SetStringSettingTest, FailsWithoutATextButAfterTheKeyIsCreated) {
    EXPECT_FALSE(SetStringSetting(HKEY_LOCAL_MACHINE, Key, L"name", nullptr, false));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, Key));
    EXPECT_EQ(ValueHere(), std::nullopt);
}

// ---- DeleteSetting

RegistrySetting ValueToDelete(bool view32 = false) {
    return Record(HKEY_LOCAL_MACHINE, Key, L"name", view32);
}

RegistrySetting KeyToDelete(bool view32 = false) {
    return Record(HKEY_LOCAL_MACHINE, Key, L"", view32);
}

TEST_F(DeleteSettingTest, DeletesAValueAndNothingElse) {
    PutHere(DwordValue(1));
    PutValue(HKEY_LOCAL_MACHINE, Key, L"", DwordValue(2));
    MakeKey(HKEY_LOCAL_MACHINE, Key + L"\\name");
    EXPECT_TRUE(DeleteSetting(ValueToDelete()));
    EXPECT_EQ(ValueHere(), std::nullopt);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, Key, L""), DwordValue(2));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, Key + L"\\name"));
}

TEST_F(DeleteSettingTest, DeletesTheWholeKeyIfItNamesNoValue) {
    MakeKey(HKEY_LOCAL_MACHINE, Key + L"\\1\\2\\3\\4\\5");
    MakeKey(HKEY_LOCAL_MACHINE, Key + L"\\6");
    PutHere(DwordValue(1));
    EXPECT_TRUE(DeleteSetting(KeyToDelete()));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, Key));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"Software"));
}

TEST_F(DeleteSettingTest, DoesNothingWithoutARoot) {
    const RecordedImport<&::RegCreateKeyExW> create;
    EXPECT_FALSE(DeleteSetting(Record(nullptr, Key, L"name")));
    EXPECT_FALSE(DeleteSetting(Record(nullptr, Key, L"")));
    EXPECT_EQ(create.Made(), Calls{});
}

TEST_F(DeleteSettingTest, CreatesAMissingKeyAndFailsOnItsMissingValue) {
    EXPECT_FALSE(DeleteSetting(ValueToDelete()));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, Key));
}

TEST_F(DeleteSettingTest, CreatesAMissingKeyAndDeletesIt) {
    EXPECT_TRUE(DeleteSetting(KeyToDelete()));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, Key));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"Software"));
}

TEST_F(DeleteSettingTest, CreatesWithTheRightToWriteInTheView) {
    for (const bool view32 : {false, true}) {
        for (const RegistrySetting& record : {ValueToDelete(view32), KeyToDelete(view32)}) {
            PutHere(DwordValue(1));
            const RecordedImport<&::RegCreateKeyExW> create;
            EXPECT_TRUE(DeleteSetting(record));
            EXPECT_EQ(create.Made(), OneCreation(view32 ? 0x20206 : 0x20006));
        }
    }
}

TEST_F(DeleteSettingTest, FailsIfTheKeyCannotBeCreated) {
    PutHere(DwordValue(1));
    const ImportHook<&::RegCreateKeyExW> create([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_FALSE(DeleteSetting(ValueToDelete()));
    EXPECT_FALSE(DeleteSetting(KeyToDelete()));
    EXPECT_EQ(ValueHere(), DwordValue(1));
}

TEST_F(DeleteSettingTest, FailsIfTheValueCannotBeDeleted) {
    const RecordedImport<&::RegDeleteValueW> deleteValue(
        [](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_FALSE(DeleteSetting(ValueToDelete()));
    EXPECT_THAT(deleteValue.Made(), ElementsAre(EndsWith(Call(L"name"))));
}

TEST_F(DeleteSettingTest, FailsIfTheKeyCannotBeDeleted) {
    MakeKey(HKEY_LOCAL_MACHINE, Key);
    {
        const ImportHook<&::RegEnumKeyExW> enumerate([](auto...) { return ERROR_ACCESS_DENIED; });
        EXPECT_FALSE(DeleteSetting(KeyToDelete()));
    }
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, Key));
}

// ---- The two views, in the machine's own registry: a private one has no second view

class RegistryViews : public testing::Test {
protected:
    RegistryViews() { Clear(); }
    ~RegistryViews() override { Clear(); }

    static void Clear() {
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, Path.c_str());
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, Path32.c_str());
    }

    static inline const std::wstring Path = L"SOFTWARE\\FinasetTests";
    static inline const std::wstring Path32 = L"SOFTWARE\\Wow6432Node\\FinasetTests";
};

TEST_F(RegistryViews, AValueIsWrittenAndDeletedInTheViewOfItsRecord) {
    for (const bool view32 : {true, false}) {
        const std::wstring& path = view32 ? Path32 : Path;
        const std::wstring& other = view32 ? Path : Path32;
        EXPECT_TRUE(SetDwordSetting(HKEY_LOCAL_MACHINE, Path, L"number", 1, view32));
        EXPECT_TRUE(SetStringSetting(HKEY_LOCAL_MACHINE, Path, L"text", L"a", view32));
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, path, L"number"), DwordValue(1));
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, path, L"text"), TextValue(L"a"));
        EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, other));

        EXPECT_FALSE(DeleteSetting(Record(HKEY_LOCAL_MACHINE, Path, L"number", !view32)));
        EXPECT_TRUE(DeleteSetting(Record(HKEY_LOCAL_MACHINE, Path, L"number", view32)));
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, path, L"number"), std::nullopt);
        Clear();
    }
}

TEST_F(RegistryViews, ValuesAreReadInTheDefaultView) {
    SetDwordSetting(HKEY_LOCAL_MACHINE, Path, L"number", 1, true);
    SetStringSetting(HKEY_LOCAL_MACHINE, Path, L"text", L"a", true);
    std::wstring text;
    EXPECT_EQ(GetDwordWithDefault(nullptr, Path, L"number", 7), 7U);
    EXPECT_EQ(GetStringSetting(nullptr, Path, L"text", text), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryViews, AKeyIsDeletedInTheViewOfItsRecord) {
    for (const bool view32 : {true, false}) {
        MakeKey(HKEY_LOCAL_MACHINE, Path + L"\\1\\2");
        MakeKey(HKEY_LOCAL_MACHINE, Path32 + L"\\1\\2");
        EXPECT_TRUE(DeleteSetting(Record(HKEY_LOCAL_MACHINE, Path, L"", view32)));
        EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, view32 ? Path32 : Path));
        EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, (view32 ? Path : Path32) + L"\\1\\2"));
    }
}

// ---- SettingKeyText, SettingDisplayText

// The predefined root with a number, which the platform sign-extends.
HKEY Root(std::uint32_t number) {
    return reinterpret_cast<HKEY>(static_cast<std::intptr_t>(static_cast<std::int32_t>(number)));
}

TEST(SettingKeyText, NamesTheHive) {
    const std::pair<HKEY, std::wstring> rows[] = {
        {Root(0x80000000), L"HKEY_CLASSES_ROOT"},
        {Root(0x80000001), L"HKEY_CURRENT_USER"},
        {Root(0x80000002), L"HKEY_LOCAL_MACHINE"},
        {Root(0x80000003), L"HKEY_USERS"},
        {Root(0x80000004), L"HKEY_PERFORMANCE_DATA"},
        {Root(0x80000050), L"HKEY_PERFORMANCE_TEXT"},
        {Root(0x80000060), L"HKEY_PERFORMANCE_NLSTEXT"},
        {Root(0x80000005), L"HKEY_CURRENT_CONFIG"},
        {Root(0x80000006), L"HKEY_DYN_DATA"},
        {Root(0x80000007), L"HKEY_CURRENT_USER_LOCAL_SETTINGS"},
        {Root(0x80000008), L""},
        {Root(0x1234), L""},
        {nullptr, L""},
    };
    for (const auto& [root, hive] : rows) {
        EXPECT_EQ(SettingKeyText(Record(root, L"a\\b", L"name")), hive + L"\\a\\b\\name");
        EXPECT_EQ(SettingKeyText(Record(root, L"a\\b", L"name", true)),
                  L"32Bit Registry Hive - " + hive + L"\\a\\b\\name");
    }
}

TEST(SettingKeyText, KeepsTheBackslashesOfAnEmptyPathAndName) {
    EXPECT_EQ(SettingKeyText(Record(HKEY_USERS, L"", L"")), L"HKEY_USERS\\\\");
    EXPECT_EQ(SettingKeyText(Record(nullptr, L"", L"")), L"\\\\");
}

TEST(SettingDisplayText, AddsTheDataOfTheType) {
    const struct {
        DWORD type;
        DWORD number;
        const wchar_t* text;
        const wchar_t* data;
    } rows[] = {
        {1, 5, L"a text, 100 %", L"=a text, 100 %"},
        {1, 5, L"", L"="},
        {4, 0, L"text", L"=0"},
        {4, 1234567, L"", L"=1234567"},
        {4, 4294967295, L"text", L"=4294967295"},
        {0, 5, L"text", L""},
        {2, 5, L"text", L""},
        {3, 5, L"text", L""},
        {5, 5, L"text", L""},
        {7, 5, L"text", L""},
        {11, 5, L"text", L""},
    };
    for (const auto& [type, number, text, data] : rows) {
        for (const bool view32 : {false, true}) {
            RegistrySetting setting = Record(HKEY_LOCAL_MACHINE, L"key", L"name", view32);
            setting.type = type;
            setting.number = number;
            setting.text = text;
            EXPECT_EQ(SettingDisplayText(setting), SettingKeyText(setting) + data);
        }
    }
}

}  // namespace
