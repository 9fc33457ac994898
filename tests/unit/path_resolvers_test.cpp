#include "config/path_resolvers.h"

#include "support/call_log.h"
#include "support/environment_variable.h"
#include "support/import_hook.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::ImportHook;
using test::ParametersKey;
using test::RecordedImport;
using test::RegistryValue;
using test::Some;
using test::TextValue;

// A resolver, its value, its default on a machine whose data is in C:\Data, and what an empty name
// leaves after the directory.
struct Resolver {
    const char* name;
    const PathResolver& resolve;
    std::wstring valueName;
    std::wstring defaultDirectory;
    std::wstring behindEmptyName;
};

void PrintTo(const Resolver& resolver, std::ostream* out) {
    *out << resolver.name;
}

class PathResolvers : public testing::TestWithParam<Resolver> {
protected:
    static std::wstring Resolve(const std::wstring& name) { return GetParam().resolve(name); }

    static void PutDirectory(const RegistryValue& value) {
        test::PutValue(HKEY_LOCAL_MACHINE, ParametersKey, GetParam().valueName, value);
    }

    // What both kinds of name resolve to in this directory.
    static void ExpectDirectory(const std::wstring& directory) {
        EXPECT_EQ(Resolve(L"name.xml"), directory + L"\\name.xml");
        EXPECT_EQ(Resolve(L""), directory + GetParam().behindEmptyName);
    }

    static void ExpectDefault() { ExpectDirectory(GetParam().defaultDirectory); }

private:
    test::PrivateRegistry registry_;
    test::EnvironmentVariable programData_{L"ProgramData", L"C:\\Data"};
    test::EnvironmentVariable variable_{L"FinasetTests", L"D:\\x y"};
};

TEST_P(PathResolvers, GiveTheDefaultWithoutKeyOrValue) {
    ExpectDefault();
    test::MakeKey(HKEY_LOCAL_MACHINE, ParametersKey);
    ExpectDefault();
    for (const wchar_t* other :
         {L"ConfigFileDirectory", L"ImageCacheDirectory", L"ActivityLogDirectory"}) {
        if (other != GetParam().valueName) {
            test::PutValue(HKEY_LOCAL_MACHINE, ParametersKey, other, TextValue(L"C:\\other"));
        }
    }
    ExpectDefault();
}

TEST_P(PathResolvers, TakeTheDirectoryOfTheValueWithItsVariablesExpanded) {
    const std::wstring longest(2000, L'x');  // what fits, with the name, into the expansion
    for (const DWORD type : {DWORD{REG_SZ}, DWORD{REG_EXPAND_SZ}}) {
        PutDirectory(TextValue(L"E:\\a b", type));
        ExpectDirectory(L"E:\\a b");
        PutDirectory(TextValue(L"%FinasetTests%\\c", type));
        ExpectDirectory(L"D:\\x y\\c");
        PutDirectory(TextValue(L"%FinasetTestsUnset%", type));
        ExpectDirectory(L"%FinasetTestsUnset%");
        PutDirectory(TextValue(L"E:\\b\\", type));  // a doubled backslash on purpose
        ExpectDirectory(L"E:\\b\\");
        PutDirectory(TextValue(L"E:\\\u4E2D\u00AE", type));
        ExpectDirectory(L"E:\\\u4E2D\u00AE");
        PutDirectory(TextValue(L"", type));
        ExpectDirectory(L"");
        PutDirectory(TextValue(longest, type));
        ExpectDirectory(longest);
    }
}

TEST_P(PathResolvers, ExpandTheWholeResult) {
    EXPECT_EQ(Resolve(L"%FinasetTests%.xml"), GetParam().defaultDirectory + L"\\D:\\x y.xml");
    PutDirectory(TextValue(L"E:\\%Finaset"));
    EXPECT_EQ(Resolve(L"Tests%"), L"E:\\%Finaset\\Tests%");
    PutDirectory(TextValue(L"E:\\100%"));
    EXPECT_EQ(Resolve(L"%FinasetTests%"), L"E:\\100%\\%FinasetTests%");
}

TEST_P(PathResolvers, GiveTheDefaultForAValueThatIsNoText) {
    PutDirectory(test::DwordValue(7));
    ExpectDefault();
    for (const DWORD type : {DWORD{REG_NONE}, DWORD{REG_BINARY}, DWORD{REG_MULTI_SZ}}) {
        PutDirectory(TextValue(L"E:\\a", type));
        ExpectDefault();
    }
}

TEST_P(PathResolvers, GiveTheDefaultForATextThatDoesNotEndOrHasAnOddSize) {
    const std::vector<BYTE> ended = TextValue(L"E:\\ab").bytes;
    for (const std::size_t size : {ended.size() - 2, ended.size() - 1}) {
        // Not from a real value: the platform may add what is missing.
        const ImportHook<&::RegQueryValueExW> query(
            [&](HKEY, LPCWSTR, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD capacity) -> LSTATUS {
                if (data != nullptr) {
                    *type = REG_SZ;
                    std::memcpy(data, ended.data(), size);
                }
                *capacity = static_cast<DWORD>(size);
                return ERROR_SUCCESS;
            });
        test::MakeKey(HKEY_LOCAL_MACHINE, ParametersKey);
        ExpectDefault();
    }
}

TEST_P(PathResolvers, KeepTheDefaultForAValueOf0Bytes) {
    PutDirectory({REG_SZ, {}});
    ExpectDefault();
}

// What does not fit is up to the expansion: never more than its buffer, and not the default.
TEST_P(PathResolvers, TakeADirectoryOf4000CharactersAsFarAsItCanBeExpanded) {
    PutDirectory(TextValue(std::wstring(4000, L'x')));
    const RecordedImport<&::ExpandEnvironmentStringsW> expand;
    const std::wstring path = Resolve(L"name.xml");
    EXPECT_LE(path.size(), 2048U);
    EXPECT_EQ(path.find_first_not_of(L'x'), std::wstring::npos);
    EXPECT_EQ(expand.Made(), Calls{Call(std::wstring(4000, L'x') + L"\\name.xml", Some, 2048)});
}

TEST_P(PathResolvers, AreEmptyIfTheExpansionFails) {
    const ImportHook<&::ExpandEnvironmentStringsW> expand([](auto...) { return 0; });
    EXPECT_EQ(Resolve(L"name.xml"), L"");
    EXPECT_EQ(Resolve(L""), L"");
}

TEST_P(PathResolvers, GiveTheDefaultIfTheReadFailsHalfway) {
    PutDirectory(TextValue(L"E:\\a"));
    int queries = 0;
    ImportHook<&::RegQueryValueExW> query([&](auto... arguments) {
        const LSTATUS error = query.Forward(arguments...);
        return ++queries % 2 == 0 ? ERROR_ACCESS_DENIED : error;
    });
    ExpectDefault();
    EXPECT_EQ(queries, 4);
}

TEST_P(PathResolvers, ReadTheirValueInTheServicesParameters) {
    PutDirectory(TextValue(L"E:\\a"));
    const RecordedImport<&::RegOpenKeyExW> open;
    std::vector<std::wstring> names;
    ImportHook<&::RegQueryValueExW> query([&](HKEY key, LPCWSTR name, auto... arguments) {
        names.emplace_back(name);
        return query.Forward(key, name, arguments...);
    });
    EXPECT_EQ(Resolve(L"b"), L"E:\\a\\b");
    EXPECT_EQ(open.Made(), Calls{Call(HKEY_LOCAL_MACHINE, ParametersKey, 0, 0x20019, Some)});
    EXPECT_EQ(names, std::vector<std::wstring>(2, GetParam().valueName));
}

INSTANTIATE_TEST_SUITE_P(
    All, PathResolvers,
    testing::Values(Resolver{"ConfigurationFiles", ConfigurationFilesResolver,
                             L"ConfigFileDirectory",
                             L"C:\\Data\\Tarsel\\Nimbus\\ConfigurationFiles", L"\\"},
                    Resolver{"ImageCache", ImageCacheResolver, L"ImageCacheDirectory",
                             L"C:\\Data\\Tarsel\\ImageCache", L""},
                    Resolver{"ActivityLog", ActivityLogResolver, L"ActivityLogDirectory",
                             L"C:\\Data\\Tarsel\\Nimbus\\ActivityLog", L"\\"}),
    testing::PrintToStringParamName());

}  // namespace
