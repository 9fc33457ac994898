#include "fs/directory_security.h"

#include "support/environment_variable.h"
#include "support/import_hook.h"
#include "support/registry_calls.h"
#include "support/security_calls.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::EnvironmentVariable;
using test::ImportHook;
using test::InheritedDacl;
using test::ProtectedDacl;
using test::RecordedImport;
using test::SecurityCalls;
using test::TemporaryDirectory;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr SecurityId Administrators = {1, 2, {{0, 0, 0, 0, 0, 5}}, {32, 544}};
constexpr SecurityId LocalSystem = {1, 1, {{0, 0, 0, 0, 0, 5}}, {18, 0}};
constexpr SecurityId Users = {1, 2, {{0, 0, 0, 0, 0, 5}}, {32, 545}};
constexpr SecurityId Invalid = {0, 2, {{0, 0, 0, 0, 0, 5}}, {32, 545}};

// ----- SetProtectedDacl and ResetInheritedDacl -----

TEST(SetProtectedDacl, HandsOverTheEntriesInTheOrderGiven) {
    const std::pair<std::vector<AceSpec>, const char*> rows[] = {
        {{}, ""},
        {{{0x3, 0x1000'0000, Administrators}}, "(A;OICI;GA;;;BA)"},
        {{{0x3, 0xA000'0000, Users}, {0x3, 0x1000'0000, LocalSystem}},
         "(A;OICI;GXGR;;;BU)(A;OICI;GA;;;SY)"},
        {{{0x0, 0x8000'0000, LocalSystem},
          {0x1, 0x4000'0000, Users},
          {0x2, 0x2000'0000, Administrators}},
         "(A;;GR;;;SY)(A;OI;GW;;;BU)(A;CI;GX;;;BA)"},
    };
    for (const auto& [aces, entries] : rows) {
        const SecurityCalls calls;
        EXPECT_TRUE(SetProtectedDacl(L"C:\\a b", aces));
        EXPECT_EQ(calls.Made(), Calls{ProtectedDacl(L"C:\\a b", entries)});
    }
}

TEST(SetProtectedDacl, LeavesOutAnEntryWhoseTrusteeIsNotValid) {
    const AceSpec invalid = {0x3, 0x1000'0000, Invalid};
    const AceSpec system = {0x3, 0x1000'0000, LocalSystem};
    const AceSpec users = {0x3, 0xA000'0000, Users};
    const std::pair<std::vector<AceSpec>, const char*> rows[] = {
        {{invalid}, ""},
        {{invalid, system, users}, "(A;OICI;GA;;;SY)(A;OICI;GXGR;;;BU)"},
        {{system, invalid, users}, "(A;OICI;GA;;;SY)(A;OICI;GXGR;;;BU)"},
        {{system, users, invalid}, "(A;OICI;GA;;;SY)(A;OICI;GXGR;;;BU)"},
    };
    for (const auto& [aces, entries] : rows) {
        const SecurityCalls calls;
        EXPECT_TRUE(SetProtectedDacl(L"C:\\a", aces));
        EXPECT_EQ(calls.Made(), Calls{ProtectedDacl(L"C:\\a", entries)});
    }
}

TEST(SetProtectedDacl, HasRoomForManyEntries) {
    const SecurityCalls calls;
    std::string entries;
    for (int i = 0; i < 100; ++i) {
        entries += "(A;OICI;GA;;;BA)";
    }
    const std::vector<AceSpec> aces(100, {0x3, 0x1000'0000, Administrators});
    EXPECT_TRUE(SetProtectedDacl(L"C:\\a", aces));
    EXPECT_EQ(calls.Made(), Calls{ProtectedDacl(L"C:\\a", entries)});
}

TEST(SetProtectedDacl, SetsNoListThatCouldNotBeBuiltWhole) {
    const std::vector<AceSpec> aces(3, {0x3, 0x1000'0000, Administrators});
    for (int failing = 0; failing < 3; ++failing) {
        const SecurityCalls calls;
        int added = 0;
        ImportHook<&::AddAccessAllowedAceEx> add([&](auto... arguments) -> BOOL {
            return added++ == failing ? FALSE : add.Forward(arguments...);
        });
        EXPECT_FALSE(SetProtectedDacl(L"C:\\a", aces));
        EXPECT_THAT(calls.Made(), IsEmpty());
    }
}

// The two functions that set a list, with any list.
bool Protect(const std::wstring& path) {
    return SetProtectedDacl(path, {});
}

constexpr std::pair<bool (*)(const std::wstring&), std::string (*)(const std::wstring&)>
    ListSetters[] = {
        {&Protect, [](const std::wstring& path) { return ProtectedDacl(path, {}); }},
        {&ResetInheritedDacl, &InheritedDacl},
};

TEST(SettingAnAccessList, NamesTheExpandedPath) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\here");
    for (const auto& [set, call] : ListSetters) {
        const SecurityCalls calls;
        EXPECT_TRUE(set(L"%FinasetTests%\\a\\"));
        EXPECT_EQ(calls.Made(), Calls{call(L"C:\\here\\a\\")});
    }
}

TEST(SettingAnAccessList, SucceedsOnlyWithoutAnErrorAndStoresTheResult) {
    for (const auto& [set, call] : ListSetters) {
        for (const DWORD error : {0UL, 1UL, 2UL, 5UL, 259UL, 0xFFFF'FFFFUL}) {
            SecurityCalls calls;
            calls.errors[L"C:\\a"] = error;
            EXPECT_EQ(set(L"C:\\a"), error == 0);
            EXPECT_EQ(::GetLastError(), error);
            EXPECT_EQ(calls.Made(), Calls{call(L"C:\\a")});
        }
    }
}

TEST(SettingAnAccessList, FailsWithoutACallIfTheListCannotBeMade) {
    const ImportHook<&::InitializeAcl> hook([](PACL, DWORD, DWORD) { return FALSE; });
    const SecurityCalls calls;
    for (const auto& [set, call] : ListSetters) {
        EXPECT_FALSE(set(L"C:\\a"));
    }
    EXPECT_FALSE(SetProtectedDacl(L"C:\\a", std::vector<AceSpec>{{0x3, 0x1000'0000, Users}}));
    EXPECT_THAT(calls.Made(), IsEmpty());
}

TEST(SettingAnAccessList, WorksOnWhatIsThereAndFailsOnWhatIsNot) {
    const TemporaryDirectory directory;
    test::MakeFile(directory / L"file");
    const std::vector<AceSpec> aces = {{0x3, 0x1000'0000, Administrators},
                                       {0x3, 0x1000'0000, LocalSystem},
                                       {0x3, 0xA000'0000, Users}};
    EXPECT_TRUE(ResetInheritedDacl(directory / L"file"));
    EXPECT_EQ(::GetLastError(), 0U);
    EXPECT_TRUE(SetProtectedDacl(directory.Path(), aces));
    EXPECT_EQ(::GetLastError(), 0U);
    EXPECT_FALSE(ResetInheritedDacl(directory / L"missing"));
    EXPECT_EQ(::GetLastError(), 2U);
    EXPECT_FALSE(SetProtectedDacl(directory / L"missing", aces));
    EXPECT_EQ(::GetLastError(), 2U);
}

// ----- HasMultipleHardLinks -----

// A file of two names.
void MakeLinkedFile(const std::wstring& path, const std::wstring& otherPath) {
    test::MakeFile(path);
    ASSERT_TRUE(::CreateHardLinkW(otherPath.c_str(), path.c_str(), nullptr));
}

TEST(HasMultipleHardLinks, IsTrueForAFileOfSeveralNames) {
    const TemporaryDirectory directory;
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    test::MakeFile(directory / L"single");
    MakeLinkedFile(directory / L"first", directory / L"second");
    EXPECT_FALSE(HasMultipleHardLinks(directory / L"single"));
    EXPECT_TRUE(HasMultipleHardLinks(directory / L"first"));
    EXPECT_TRUE(HasMultipleHardLinks(directory / L"second"));
    EXPECT_TRUE(HasMultipleHardLinks(L"%FinasetTests%\\first"));
    ::DeleteFileW((directory / L"second").c_str());
    EXPECT_FALSE(HasMultipleHardLinks(directory / L"first"));
}

TEST(HasMultipleHardLinks, IsFalseForWhatCannotBeOpened) {
    const TemporaryDirectory directory;
    MakeLinkedFile(directory / L"first", directory / L"second");
    {
        // It wants the file for itself.
        const HANDLE open = ::CreateFileW((directory / L"first").c_str(), GENERIC_READ,
                                          FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_FALSE(HasMultipleHardLinks(directory / L"first"));
        ::CloseHandle(open);
    }
    const RecordedImport<&::GetFileInformationByHandle> ask;
    EXPECT_FALSE(HasMultipleHardLinks(directory.Path()));
    EXPECT_FALSE(HasMultipleHardLinks(directory / L"missing"));
    EXPECT_THAT(ask.Made(), IsEmpty());
}

TEST(HasMultipleHardLinks, AsksThePlatformNothingAboutAnEmptyPath) {
    const RecordedImport<&::ExpandEnvironmentStringsW> expand;
    const RecordedImport<&::CreateFileW> open;
    EXPECT_FALSE(HasMultipleHardLinks(L""));
    EXPECT_THAT(expand.Made(), IsEmpty());
    EXPECT_THAT(open.Made(), IsEmpty());
}

TEST(HasMultipleHardLinks, OpensTheExpandedPathToReadAndAsNoDirectory) {
    const TemporaryDirectory directory;
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    test::MakeFile(directory / L"file");
    const RecordedImport<&::CreateFileW> open;
    for (const wchar_t* name : {L"file", L"missing"}) {
        HasMultipleHardLinks(std::wstring(L"%FinasetTests%\\") + name);
    }
    EXPECT_THAT(
        open.Made(),
        ElementsAre(Call(directory / L"file", 0x8000'0000, 0, nullptr, 3, 0x1, nullptr),
                    Call(directory / L"missing", 0x8000'0000, 0, nullptr, 3, 0x1, nullptr)));
}

TEST(HasMultipleHardLinks, CountsMoreThanOneIfThePlatformTellsANumber) {
    const TemporaryDirectory directory;
    test::MakeFile(directory / L"file");
    const struct {
        BOOL told;
        DWORD number;
        bool multiple;
    } rows[] = {
        {TRUE, 0, false}, {TRUE, 1, false},  {TRUE, 2, true},
        {TRUE, 3, true},  {FALSE, 2, false}, {TRUE, 0xFFFF'FFFF, true},
    };
    for (const auto& row : rows) {
        const ImportHook<&::GetFileInformationByHandle> hook(
            [&](HANDLE, LPBY_HANDLE_FILE_INFORMATION information) {
                information->nNumberOfLinks = row.number;
                return row.told;
            });
        EXPECT_EQ(HasMultipleHardLinks(directory / L"file"), row.multiple);
    }
}

// ----- PathHasLink -----

// Files of which nothing is a link but what a test makes one, and that cannot be opened. What is
// asked about them is recorded.
class ImaginedPaths {
public:
    std::map<std::wstring, DWORD> attributes;  // directories, where not set
    std::vector<std::wstring> asked;           // "?" and a path: attributes; "=" and a path: links

private:
    ImportHook<&::GetFileAttributesW> attributesOf_{[this](LPCWSTR path) {
        asked.push_back(std::wstring(L"?") + path);
        const auto set = attributes.find(path);
        return set == attributes.end() ? DWORD{FILE_ATTRIBUTE_DIRECTORY} : set->second;
    }};
    ImportHook<&::CreateFileW> open_{[this](LPCWSTR path, auto...) {
        asked.push_back(std::wstring(L"=") + path);
        return INVALID_HANDLE_VALUE;
    }};
};

TEST(PathHasLink, AsksAboutEachLevelFromTheDriveOn) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\a");
    const std::pair<const wchar_t*, std::vector<std::wstring>> rows[] = {
        {L"", {}},
        {L"C:", {L"?C:", L"=C:"}},
        {L"C:\\a b", {L"?C:", L"=C:", L"?C:\\a b", L"=C:\\a b"}},
        {L"%FinasetTests%\\b", {L"?C:", L"=C:", L"?C:\\a", L"=C:\\a", L"?C:\\a\\b", L"=C:\\a\\b"}},
        {L"C:\\a\\", {L"?C:", L"=C:", L"?C:\\a", L"=C:\\a"}},
        {L"C:\\a\\\\b",
         {L"?C:", L"=C:", L"?C:\\a", L"=C:\\a", L"?C:\\a\\", L"=C:\\a\\", L"?C:\\a\\\\b",
          L"=C:\\a\\\\b"}},
    };
    for (const auto& [path, asked] : rows) {
        const ImaginedPaths paths;
        EXPECT_FALSE(PathHasLink(path));
        EXPECT_EQ(paths.asked, asked);
    }
}

TEST(PathHasLink, FindsALinkAtAnyLevelAndAsksNoFurther) {
    const std::wstring path = L"C:\\a\\b\\c";
    const std::pair<const wchar_t*, std::vector<std::wstring>> rows[] = {
        {L"C:", {L"?C:"}},
        {L"C:\\a", {L"?C:", L"=C:", L"?C:\\a"}},
        {L"C:\\a\\b", {L"?C:", L"=C:", L"?C:\\a", L"=C:\\a", L"?C:\\a\\b"}},
        {path.c_str(),
         {L"?C:", L"=C:", L"?C:\\a", L"=C:\\a", L"?C:\\a\\b", L"=C:\\a\\b", L"?C:\\a\\b\\c"}},
    };
    for (const auto& [level, asked] : rows) {
        ImaginedPaths paths;
        paths.attributes[level] = FILE_ATTRIBUTE_DIRECTORY | 0x400;
        EXPECT_TRUE(PathHasLink(path));
        EXPECT_EQ(paths.asked, asked);
    }
}

// Attributes that make a path a link, by themselves.
constexpr std::pair<DWORD, bool> LinkAttributes[] = {
    {0x400, true},  {0x410, true},  {0xFFFF'FFFE, true},  {0xFFFF'FFFF, false},
    {0x10, false},  {0x20, false},  {0x80, false},        {0, false},
    {0x200, false}, {0x800, false}, {0xFFFF'FBFF, false},
};

TEST(PathHasLink, TakesTheReparsePointAttributeForALink) {
    for (const auto& [attributes, link] : LinkAttributes) {
        ImaginedPaths paths;
        paths.attributes[L"C:\\a"] = attributes;
        EXPECT_EQ(PathHasLink(L"C:\\a"), link) << attributes;
    }
}

TEST(PathHasLink, IsFalseForPlainDirectoriesAndForWhatIsMissing) {
    const TemporaryDirectory directory;
    test::MakeFile(directory / L"file");
    EXPECT_FALSE(PathHasLink(directory.Path()));
    EXPECT_FALSE(PathHasLink(directory / L"file"));
    EXPECT_FALSE(PathHasLink(directory / L"missing\\below"));
}

TEST(PathHasLink, TakesAFileOfSeveralNamesForALinkAtAnyLevel) {
    const TemporaryDirectory directory;
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    MakeLinkedFile(directory / L"first", directory / L"second");
    EXPECT_TRUE(PathHasLink(directory / L"first"));
    EXPECT_TRUE(PathHasLink(directory / L"second\\below\\that"));
    EXPECT_TRUE(PathHasLink(L"%FinasetTests%\\second"));
    EXPECT_FALSE(PathHasLink(directory.Path()));
}

}  // namespace
