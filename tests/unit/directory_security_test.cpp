#include "fs/directory_security.h"

#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/import_hook.h"
#include "support/print_hook.h"
#include "support/security_calls.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <ostream>
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

TEST(SetProtectedDacl, PassesTheEntriesInTheOrderGiven) {
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

// The platform accepts up to 15.
TEST(SetProtectedDacl, LeavesOutATrusteeOfMoreSubAuthoritiesThanThereAre) {
    for (const BYTE count : {BYTE{3}, BYTE{4}, BYTE{15}, BYTE{16}, BYTE{255}}) {
        SecurityId tooMany = Users;
        tooMany.subAuthorityCount = count;
        const SecurityCalls calls;
        EXPECT_TRUE(SetProtectedDacl(
            L"C:\\a",
            std::vector<AceSpec>{{0x3, 0xA000'0000, tooMany}, {0x3, 0x1000'0000, LocalSystem}}));
        EXPECT_EQ(calls.Made(), Calls{ProtectedDacl(L"C:\\a", "(A;OICI;GA;;;SY)")});
    }
}

TEST(SetProtectedDacl, UsesOneByteOfTheFlags) {
    const SecurityCalls calls;
    std::vector<DWORD> asked;
    ImportHook<&::AddAccessAllowedAceEx> add(
        [&](PACL list, DWORD revision, DWORD flags, DWORD mask, PSID sid) {
            asked.push_back(flags);
            return add.Forward(list, revision, flags, mask, sid);
        });
    const std::vector<AceSpec> aces = {{0xFFFF'FF03, 0x1000'0000, LocalSystem},
                                       {0x0000'0100, 0xA000'0000, LocalSystem}};
    EXPECT_TRUE(SetProtectedDacl(L"C:\\a", aces));
    EXPECT_THAT(asked, ElementsAre(0x3, 0x0));
    EXPECT_EQ(calls.Made(), Calls{ProtectedDacl(L"C:\\a", "(A;OICI;GA;;;SY)(A;;GXGR;;;SY)")});
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
    const ImportHook<&::InitializeAcl> hook([](auto...) { return FALSE; });
    const SecurityCalls calls;
    EXPECT_FALSE(Protect(L"C:\\a"));
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
        // It opens the file exclusively.
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

// Files that cannot be opened, and of which only those are links that a test selects. Records the
// queries about them.
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

// ----- ListDirectoryEntries -----

struct Entry {
    const wchar_t* name;
    DWORD attributes;
};

constexpr DWORD Directory = FILE_ATTRIBUTE_DIRECTORY;
constexpr DWORD File = FILE_ATTRIBUTE_ARCHIVE;

// Searches find what a test specifies, in that order, for each pattern.
class ImaginedSearches {
public:
    std::map<std::wstring, std::vector<Entry>> found;
    std::vector<std::wstring> patterns;  // asked for so far
    std::size_t open = 0;                // searches that are not closed

private:
    struct Search {
        const std::vector<Entry>* entries;
        std::size_t next;
    };

    static void Fill(const Entry& entry, LPWIN32_FIND_DATAW data) {
        *data = {};
        data->dwFileAttributes = entry.attributes;
        std::wstring(entry.name).copy(data->cFileName, MAX_PATH - 1);
    }

    ImportHook<&::FindFirstFileW> first_{
        [this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) -> HANDLE {
            patterns.emplace_back(pattern);
            const auto entries = found.find(pattern);
            if (entries == found.end()) {
                Fill({L"left behind", Directory}, data);
                return INVALID_HANDLE_VALUE;
            }
            ++open;
            Fill(entries->second.front(), data);
            return new Search{&entries->second, 1};
        }};
    ImportHook<&::FindNextFileW> next_{[](HANDLE handle, LPWIN32_FIND_DATAW data) -> BOOL {
        auto& [entries, next] = *static_cast<Search*>(handle);
        const bool more = next < entries->size();
        Fill(more ? (*entries)[next++] : Entry{L"left behind", Directory}, data);
        return more;
    }};
    ImportHook<&::FindClose> close_{[this](HANDLE handle) -> BOOL {
        delete static_cast<Search*>(handle);
        --open;
        return TRUE;
    }};
};

TEST(ListDirectoryEntries, KeepsTheOrderAndLeavesOutTheDotsAndWhatHasNoAttributes) {
    const std::pair<std::vector<Entry>, std::vector<std::wstring>> rows[] = {
        {{{L".", Directory}, {L"..", Directory}}, {}},
        {{{L".", Directory}, {L"..", Directory}, {L"b", File}, {L"a", Directory}, {L"c", 0x80}},
         {L"b", L"a", L"c"}},
        {{{L"z", File}, {L"..", Directory}, {L"a", File}, {L".", Directory}}, {L"z", L"a"}},
        {{{L"none", 0}}, {}},
        {{{L"none", 0}, {L"a", 0x1}, {L"none", 0}, {L"b", 0x400}}, {L"a", L"b"}},
        {{{L"...", File}, {L".a", File}, {L"..a", Directory}, {L"a.", File}},
         {L"...", L".a", L"..a", L"a."}},
        {{{L"%TEMP%", File}, {L" a b ", File}}, {L"%TEMP%", L" a b "}},
    };
    for (const auto& [entries, names] : rows) {
        ImaginedSearches searches;
        searches.found[L"C:\\a\\*"] = entries;
        EXPECT_EQ(ListDirectoryEntries(L"C:\\a"), names);
        EXPECT_EQ(searches.open, 0U);
    }
}

TEST(ListDirectoryEntries, AsksForTheExpandedDirectoryWithABackslashAndAStar) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\here");
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"C:\\a", L"C:\\a\\*"},
        {L"C:\\a\\", L"C:\\a\\\\*"},
        {L"%FinasetTests%", L"C:\\here\\*"},
        {L"%FinasetTests%\\a b\\", L"C:\\here\\a b\\\\*"},
    };
    for (const auto& [directory, pattern] : rows) {
        const ImaginedSearches searches;
        EXPECT_THAT(ListDirectoryEntries(directory), IsEmpty());
        EXPECT_THAT(searches.patterns, ElementsAre(pattern));
    }
}

TEST(ListDirectoryEntries, AsksThePlatformNothingAboutAnEmptyPath) {
    const RecordedImport<&::ExpandEnvironmentStringsW> expand;
    const ImaginedSearches searches;
    EXPECT_THAT(ListDirectoryEntries(L""), IsEmpty());
    EXPECT_THAT(expand.Made(), IsEmpty());
    EXPECT_THAT(searches.patterns, IsEmpty());
}

TEST(ListDirectoryEntries, FindsFilesAndDirectoriesOfAnyName) {
    const TemporaryDirectory directory;
    const std::vector<std::wstring> names = {L"a b c", L"%TEMP%", std::wstring(255, L'x'),
                                             L"\u0141\u00F3d\u017A \u65E5\u672C", L".hidden"};
    for (const std::wstring& name : names) {
        // The prefix removes the limit on a path's length.
        test::MakeFile(L"\\\\?\\" + directory / name);
    }
    ASSERT_TRUE(::CreateDirectoryW((directory / L"below").c_str(), nullptr));
    test::MakeFile(directory / L"below\\deeper");
    EXPECT_THAT(ListDirectoryEntries(directory.Path()),
                UnorderedElementsAre(names[0], names[1], names[2], names[3], names[4], L"below"));
    EXPECT_THAT(ListDirectoryEntries(directory.Path() + L"\\"), SizeIs(6));
    EXPECT_THAT(ListDirectoryEntries(directory / L"below"), ElementsAre(L"deeper"));
    EXPECT_THAT(ListDirectoryEntries(directory / L"missing"), IsEmpty());
    EXPECT_THAT(ListDirectoryEntries(directory / L"below\\deeper"), IsEmpty());
    ::DeleteFileW((L"\\\\?\\" + directory / names[2]).c_str());  // too long for the directory's end
}

// ----- ChildHasLink -----

TEST(ChildHasLink, FindsAFileOfSeveralNamesAmongTheOwnEntriesOnly) {
    const TemporaryDirectory directory;
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    EXPECT_FALSE(ChildHasLink(directory.Path()));
    EXPECT_FALSE(ChildHasLink(directory / L"missing"));
    test::MakeFile(directory / L"file");
    ASSERT_TRUE(::CreateDirectoryW((directory / L"below").c_str(), nullptr));
    MakeLinkedFile(directory / L"below\\first", directory / L"below\\second");
    EXPECT_FALSE(ChildHasLink(directory.Path()));
    EXPECT_TRUE(ChildHasLink(directory / L"below"));
    EXPECT_TRUE(ChildHasLink(directory / L"below\\"));
    EXPECT_TRUE(ChildHasLink(L"%FinasetTests%\\below"));
}

TEST(ChildHasLink, AsksAboutEachEntryInOrderUntilOneIsALink) {
    ImaginedSearches searches;
    searches.found[L"C:\\d\\*"] = searches.found[L"C:\\d\\\\*"] = {
        {L".", Directory}, {L"c", File}, {L"a", Directory}, {L"none", 0}, {L"b", File}};
    const std::vector<std::wstring> all = {L"?C:\\d\\c", L"=C:\\d\\c", L"?C:\\d\\a",
                                           L"=C:\\d\\a", L"?C:\\d\\b", L"=C:\\d\\b"};
    for (const wchar_t* directory : {L"C:\\d", L"C:\\d\\"}) {
        const ImaginedPaths paths;
        EXPECT_FALSE(ChildHasLink(directory));
        EXPECT_EQ(paths.asked, all);
    }
    const std::pair<const wchar_t*, std::ptrdiff_t> rows[] = {
        {L"C:\\d\\c", 1}, {L"C:\\d\\a", 3}, {L"C:\\d\\b", 5}};
    for (const auto& [link, asked] : rows) {
        ImaginedPaths paths;
        paths.attributes[link] = FILE_ATTRIBUTE_DIRECTORY | 0x400;
        EXPECT_TRUE(ChildHasLink(L"C:\\d"));
        EXPECT_EQ(paths.asked, std::vector(all.begin(), all.begin() + asked));
    }
}

TEST(ChildHasLink, TakesTheReparsePointAttributeForALink) {
    ImaginedSearches searches;
    searches.found[L"C:\\d\\*"] = {{L"a", File}};
    for (const auto& [attributes, link] : LinkAttributes) {
        ImaginedPaths paths;
        paths.attributes[L"C:\\d\\a"] = attributes;
        EXPECT_EQ(ChildHasLink(L"C:\\d"), link) << attributes;
    }
}

// ----- CollectSubdirectories -----

TEST(CollectSubdirectories, PutsEachAfterThoseBelowItInTheOrderFound) {
    ImaginedSearches searches;
    searches.found = {
        {L"C:\\d\\*",
         {{L".", Directory}, {L"..", Directory}, {L"b", Directory}, {L"f", File}, {L"a", 0x2410}}},
        {L"C:\\d\\b\\*", {{L"y", Directory}, {L".", Directory}, {L"none", 0}, {L"x", Directory}}},
        {L"C:\\d\\b\\x\\*", {{L"deep", Directory}, {L"..", Directory}}},
        {L"C:\\d\\a\\*", {{L"file", File}, {L"...", Directory}}},
    };
    EXPECT_THAT(CollectSubdirectories(L"C:\\d"),
                ElementsAre(L"C:\\d\\b\\y", L"C:\\d\\b\\x\\deep", L"C:\\d\\b\\x", L"C:\\d\\b",
                            L"C:\\d\\a\\...", L"C:\\d\\a"));
    EXPECT_THAT(searches.patterns,
                ElementsAre(L"C:\\d\\*", L"C:\\d\\b\\*", L"C:\\d\\b\\y\\*", L"C:\\d\\b\\x\\*",
                            L"C:\\d\\b\\x\\deep\\*", L"C:\\d\\a\\*", L"C:\\d\\a\\...\\*"));
    EXPECT_EQ(searches.open, 0U);
}

TEST(CollectSubdirectories, SearchesTheExpandedDirectoryAndBuildsOnTheOneGiven) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\here");
    const EnvironmentVariable ended(L"FinasetTestsEnded", L"C:\\here\\");
    const struct {
        const wchar_t* directory;
        const wchar_t* pattern;
        const wchar_t* below;
    } rows[] = {
        {L"C:\\here", L"C:\\here\\*", L"C:\\here\\a"},
        {L"C:\\here\\", L"C:\\here\\*", L"C:\\here\\a"},
        {L"%FinasetTests%", L"C:\\here\\*", L"%FinasetTests%\\a"},
        {L"%FinasetTests%\\", L"C:\\here\\*", L"%FinasetTests%\\a"},
        {L"%FinasetTestsEnded%", L"C:\\here\\*", L"%FinasetTestsEnded%\\a"},
        {L"", L"*", L"a"},
    };
    for (const auto& row : rows) {
        ImaginedSearches searches;
        searches.found[row.pattern] = {{L"a", Directory}};
        EXPECT_THAT(CollectSubdirectories(row.directory), ElementsAre(row.below));
        EXPECT_EQ(searches.patterns.front(), row.pattern);
    }
}

TEST(CollectSubdirectories, FindsNoneWhereNothingCanBeSearched) {
    const ImaginedSearches searches;
    EXPECT_THAT(CollectSubdirectories(L"C:\\d"), IsEmpty());
    EXPECT_THAT(searches.patterns, ElementsAre(L"C:\\d\\*"));
}

TEST(CollectSubdirectories, GoesDownARealTree) {
    const TemporaryDirectory directory;
    std::vector<std::wstring> paths;
    std::wstring level = directory.Path();
    for (int depth = 0; depth < 6; ++depth) {
        test::MakeFile(level + L"\\file");
        level += L"\\a b";
        ASSERT_TRUE(::CreateDirectoryW(level.c_str(), nullptr));
        paths.insert(paths.begin(), level);
    }
    EXPECT_EQ(CollectSubdirectories(directory.Path()), paths);
    EXPECT_EQ(CollectSubdirectories(directory.Path() + L"\\"), paths);
}

// ----- ResetChildDacls -----

// A tree in which directories are not in alphabetical order.
class ImaginedTree {
public:
    ImaginedTree() {
        searches.found = {
            {L"C:\\d\\*",
             {{L".", Directory}, {L"b", Directory}, {L"f", File}, {L"none", 0}, {L"a", Directory}}},
            {L"C:\\d\\b\\*", {{L"x", Directory}, {L"..", Directory}, {L"g", File}}},
            {L"C:\\d\\b\\x\\*", {{L"h", File}}},
            {L"C:\\d\\a\\*", {{L"i", File}}},
        };
    }

    // Everything below, in the order of resetting.
    const std::vector<std::wstring> below = {L"C:\\d\\b",       L"C:\\d\\f",    L"C:\\d\\a",
                                             L"C:\\d\\b\\x\\h", L"C:\\d\\b\\x", L"C:\\d\\b\\g",
                                             L"C:\\d\\a\\i"};

    ImaginedSearches searches;
    ImaginedPaths paths;
};

Calls ResetsOf(const std::vector<std::wstring>& paths) {
    Calls calls;
    for (const std::wstring& path : paths) {
        calls.push_back(InheritedDacl(path));
    }
    return calls;
}

Calls Sorted(Calls calls) {
    std::ranges::sort(calls);
    return calls;
}

TEST(ResetChildDacls, ResetsTheOwnEntriesAndThenThoseOfEachSubdirectory) {
    const ImaginedTree tree;
    const SecurityCalls calls;
    EXPECT_TRUE(ResetChildDacls(L"C:\\d"));
    EXPECT_EQ(calls.Made(), ResetsOf(tree.below));
    EXPECT_EQ(tree.searches.open, 0U);
}

TEST(ResetChildDacls, TriesAllAndFailsIfAnyFails) {
    const ImaginedTree tree;
    for (const std::wstring& failing : tree.below) {
        SecurityCalls calls;
        calls.errors[failing] = ERROR_ACCESS_DENIED;
        EXPECT_FALSE(ResetChildDacls(L"C:\\d"));
        EXPECT_EQ(calls.Made(), ResetsOf(tree.below));
    }
}

TEST(ResetChildDacls, LeavesAloneWhatHasAnyAttributeBesideThatOfADirectory) {
    const std::pair<DWORD, bool> rows[] = {
        {0x10, true},   {0x2010, false}, {0x11, false}, {0x30, false},        {0x410, false},
        {0x810, false}, {0x20, false},   {0, false},    {0xFFFF'FFFF, false},
    };
    for (const auto& [attributes, reset] : rows) {
        ImaginedTree tree;
        tree.paths.attributes[L"C:\\d"] = attributes;
        const SecurityCalls calls;
        EXPECT_TRUE(ResetChildDacls(L"C:\\d"));
        EXPECT_EQ(calls.Made(), reset ? ResetsOf(tree.below) : Calls{}) << attributes;
        EXPECT_EQ(tree.searches.patterns.empty(), !reset) << attributes;
    }
}

TEST(ResetChildDacls, ExpandsWhatItIsGiven) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\d");
    const ImaginedTree tree;
    const SecurityCalls calls;
    EXPECT_TRUE(ResetChildDacls(L"%FinasetTests%"));
    EXPECT_EQ(calls.Made(), ResetsOf(tree.below));
}

TEST(ResetChildDacls, ExpandsTheNamesOfEntriesToo) {
    const EnvironmentVariable variable(L"FinasetTests", L"value");
    const ImaginedPaths paths;
    ImaginedSearches searches;
    searches.found[L"C:\\d\\*"] = {{L"%FinasetTests%", File}, {L"100% sure", File}};
    const SecurityCalls calls;
    EXPECT_TRUE(ResetChildDacls(L"C:\\d"));
    EXPECT_EQ(calls.Made(), ResetsOf({L"C:\\d\\value", L"C:\\d\\100% sure"}));
}

TEST(ResetChildDacls, IsDoneWhereThereIsNothingToReset) {
    const TemporaryDirectory directory;
    test::MakeFile(directory / L"file");
    ASSERT_TRUE(::CreateDirectoryW((directory / L"empty").c_str(), nullptr));
    const SecurityCalls calls;
    for (const wchar_t* name : {L"empty", L"empty\\", L"file", L"missing"}) {
        EXPECT_TRUE(ResetChildDacls(directory / name));
    }
    EXPECT_TRUE(ResetChildDacls(L""));
    EXPECT_THAT(calls.Made(), IsEmpty());
}

TEST(ResetChildDacls, ResetsALargeRealTreeOnceEach) {
    constexpr int Depth = 6;
    constexpr int FilesPerLevel = 333;  // and a directory: 2004 entries
    const TemporaryDirectory directory;
    std::vector<std::wstring> below;
    std::wstring level = directory.Path();
    for (int depth = 0; depth < Depth; ++depth) {
        for (int file = 0; file < FilesPerLevel; ++file) {
            below.push_back(level + L"\\" + std::to_wstring(file));
            test::MakeFile(below.back());
        }
        level += L"\\d";
        ASSERT_TRUE(::CreateDirectoryW(level.c_str(), nullptr));
        below.push_back(level);
    }
    const SecurityCalls calls;
    EXPECT_TRUE(ResetChildDacls(directory.Path() + L"\\"));
    EXPECT_THAT(below, SizeIs(2004));
    EXPECT_EQ(Sorted(calls.Made()), Sorted(ResetsOf(below)));
}

// ----- SecureDirectories -----

const std::vector<AceSpec> SystemAces = {{0x3, 0x1000'0000, LocalSystem}};
constexpr char SystemEntries[] = "(A;OICI;GA;;;SY)";

SecuredDirectory Row(const std::wstring& path, bool applyToChildren = true) {
    return {SystemAces, applyToChildren, path, {}};
}

// The output for one directory up to a step, given its result and that of the creation.
enum Step { Creating = 1, VerifyingPath, VerifyingChildren, SettingList, ResettingChildren };

std::string Log(const std::wstring& directory, bool created, Step last = ResettingChildren,
                bool success = true) {
    const std::string name = test::Narrow(directory);
    const std::string texts[] = {
        "Creating Directory " + name + " \t - \t",
        "Verifying File/Directory " + name + " has NO links\t - \t",
        "Verifying Children Files of Directory " + name + " has NO links\t - \t",
        "Setting DACLs on File/Directory " + name + " \t - \t",
        "Setting Child Inheritance DACLs on File/Directory " + name + " \t - \t",
    };
    std::string log;
    for (int step = Creating; step <= last; ++step) {
        const bool good = step == Creating ? created : step != last || success;
        log += texts[step - 1] + (good ? "Success\r\n" : "Failure\r\n");
    }
    return log;
}

// The output and result of a walk over the rows.
struct Walk {
    std::string log;
    bool result;

    bool operator==(const Walk&) const = default;
};

Walk Secure(const std::vector<SecuredDirectory>& rows) {
    Walk walk = {};
    walk.log = test::Printed([&] { walk.result = SecureDirectories(rows); });
    return walk;
}

void PrintTo(const Walk& walk, std::ostream* stream) {
    *stream << walk.log << (walk.result ? "true" : "false");
}

class SecureDirectoriesTest : public testing::Test {
protected:
    const TemporaryDirectory directory;
    SecurityCalls calls;
};

TEST_F(SecureDirectoriesTest, CreatesVerifiesAndSetsEachRow) {
    const std::wstring first = directory / L"a b\\c";
    const std::wstring second = directory / L"a b";
    EXPECT_EQ(Secure({Row(first), Row(second)}),
              (Walk{Log(first, true) + Log(second, false), true}));
    EXPECT_NE(::GetFileAttributesW(first.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(calls.Made(), (Calls{ProtectedDacl(first, SystemEntries),
                                   ProtectedDacl(second, SystemEntries), InheritedDacl(first)}));
}

TEST_F(SecureDirectoriesTest, WritesEachLineByteForByte) {
    const ImaginedPaths paths;
    const ImaginedSearches searches;
    EXPECT_EQ(Secure({Row(L"C:\\a")}).log,
              "Creating Directory C:\\a \t - \tFailure\r\n"
              "Verifying File/Directory C:\\a has NO links\t - \tSuccess\r\n"
              "Verifying Children Files of Directory C:\\a has NO links\t - \tSuccess\r\n"
              "Setting DACLs on File/Directory C:\\a \t - \tSuccess\r\n"
              "Setting Child Inheritance DACLs on File/Directory C:\\a \t - \tSuccess\r\n");
}

TEST_F(SecureDirectoriesTest, PrintsEachStepTakesItAndPrintsItsResult) {
    const std::wstring path = directory / L"new";
    test::MakeFile(directory / L"file");
    std::string order;
    const test::PrintHook print([&](const std::string& text) { order += text[0]; });
    ImportHook<&::CreateDirectoryW> create([&](LPCWSTR created, LPSECURITY_ATTRIBUTES attributes) {
        order += '1';
        const BOOL result = create.Forward(created, attributes);
        test::MakeFile(path + L"\\file");
        return result;
    });
    ImportHook<&::CreateFileW> open([&](LPCWSTR opened, auto... arguments) {
        order += opened == path ? "2" : opened == path + L"\\file" ? "3" : "";
        return open.Forward(opened, arguments...);
    });
    const ImportHook<&::SetNamedSecurityInfoW> set([&](LPWSTR changed, auto...) -> DWORD {
        order += changed == path ? '4' : '5';
        return ERROR_SUCCESS;
    });
    EXPECT_TRUE(Secure({Row(path)}).result);
    EXPECT_EQ(order, "C1SV2SV3SS4SS5S");
}

TEST_F(SecureDirectoriesTest, IsFalseAndPrintsNothingForNoRow) {
    EXPECT_EQ(Secure({}), (Walk{"", false}));
}

TEST_F(SecureDirectoriesTest, LeavesTheChildrenOfARowThatSaysSo) {
    test::MakeFile(directory / L"file");
    const std::wstring& path = directory.Path();
    EXPECT_EQ(Secure({Row(path, false), Row(path, true)}),
              (Walk{Log(path, false, SettingList) + Log(path, false), true}));
    EXPECT_EQ(calls.Made(),
              (Calls{ProtectedDacl(path, SystemEntries), ProtectedDacl(path, SystemEntries),
                     InheritedDacl(directory / L"file")}));
}

TEST_F(SecureDirectoriesTest, AsksTheResolverForThePathAndPrintsItExpanded) {
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    const std::wstring resolved = directory / L"resolved\\";
    const std::wstring plain = directory / L"plain";
    std::vector<std::wstring> asked;
    SecuredDirectory row = Row(L"argument");
    row.resolvePath = [&](const std::wstring& argument) -> std::wstring {
        asked.push_back(argument);
        return L"%FinasetTests%\\resolved\\";
    };
    EXPECT_EQ(Secure({row, Row(L"%FinasetTests%\\plain")}),
              (Walk{Log(resolved, true) + Log(plain, true), true}));
    EXPECT_THAT(asked, ElementsAre(L"argument"));
    EXPECT_EQ(calls.Made(),
              (Calls{ProtectedDacl(resolved, SystemEntries), ProtectedDacl(plain, SystemEntries)}));
}

TEST_F(SecureDirectoriesTest, GoesOnWithADirectoryThatCannotBeCreated) {
    const std::wstring path = directory / L"new";
    const ImportHook<&::CreateDirectoryW> hook([](auto...) { return FALSE; });
    EXPECT_EQ(Secure({Row(path)}), (Walk{Log(path, false), true}));
    EXPECT_EQ(calls.Made(), Calls{ProtectedDacl(path, SystemEntries)});
}

// The real platform sets no list on an empty path.
TEST(SecureDirectories, SecuresNothingIfThePathCannotBeExpanded) {
    const ImportHook<&::ExpandEnvironmentStringsW> hook([](auto...) { return 0UL; });
    const RecordedImport<&::CreateDirectoryW> create;
    EXPECT_EQ(Secure({Row(L"C:\\FinasetTests")}),
              (Walk{Log(L"", false, SettingList, false), false}));
    EXPECT_THAT(create.Made(), IsEmpty());
}

// Three rows; a step of the second one fails.
class AFailingStep : public SecureDirectoriesTest {
protected:
    AFailingStep() {
        ::CreateDirectoryW(path.c_str(), nullptr);
        test::MakeFile(path + L"\\1");
        test::MakeFile(path + L"\\2");
    }

    // Expects that the walk ends at the step, after it made these calls for the second row.
    void ExpectEndAt(Step step, const Calls& made) {
        bool asked = false;
        SecuredDirectory third = Row({});
        third.resolvePath = [&](const std::wstring& /*argument*/) {
            asked = true;
            return directory / L"third";
        };
        EXPECT_EQ(Secure({Row(first), Row(path), third}),
                  (Walk{Log(first, true) + Log(path, false, step, false), false}));
        EXPECT_FALSE(asked);
        EXPECT_EQ(::GetFileAttributesW((directory / L"third").c_str()), INVALID_FILE_ATTRIBUTES);
        Calls all = {ProtectedDacl(first, SystemEntries)};
        all.insert(all.end(), made.begin(), made.end());
        EXPECT_EQ(calls.Made(), all);
    }

    const std::wstring first = directory / L"first";
    const std::wstring path = directory / L"second";
    const Calls whole = {ProtectedDacl(path, SystemEntries), InheritedDacl(path + L"\\1"),
                         InheritedDacl(path + L"\\2")};
};

TEST_F(AFailingStep, EndsTheWalkAtALinkOnThePath) {
    ImportHook<&::GetFileAttributesW> link([&](LPCWSTR asked) {
        return link.Forward(asked) | (asked == path ? FILE_ATTRIBUTE_REPARSE_POINT : 0UL);
    });
    ExpectEndAt(VerifyingPath, {});
}

TEST_F(AFailingStep, EndsTheWalkAtALinkAmongTheEntries) {
    ASSERT_TRUE(
        ::CreateHardLinkW((directory / L"other").c_str(), (path + L"\\2").c_str(), nullptr));
    ExpectEndAt(VerifyingChildren, {});
}

TEST_F(AFailingStep, EndsTheWalkAtAListThatCannotBeSet) {
    calls.errors[path] = ERROR_ACCESS_DENIED;
    ExpectEndAt(SettingList, {whole[0]});
}

TEST_F(AFailingStep, EndsTheWalkAtAChildThatCannotBeResetAfterTryingAll) {
    calls.errors[path + L"\\1"] = ERROR_ACCESS_DENIED;
    ExpectEndAt(ResettingChildren, whole);
}

TEST_F(SecureDirectoriesTest, FailsInTheFirstAndInTheOnlyRow) {
    const std::wstring& path = directory.Path();
    calls.errors[path] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Secure({Row(path)}), (Walk{Log(path, false, SettingList, false), false}));
    EXPECT_EQ(Secure({Row(path), Row(directory / L"next")}),
              (Walk{Log(path, false, SettingList, false), false}));
}

}  // namespace
