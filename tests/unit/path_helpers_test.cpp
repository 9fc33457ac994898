#include "fs/path_helpers.h"

#include "support/call_log.h"
#include "support/environment_variable.h"
#include "support/import_hook.h"
#include "support/split_path.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::EnvironmentVariable;
using test::ImportHook;
using test::RecordedImport;
using test::Some;
using testing::Each;
using testing::ElementsAre;

using ExpandHook = ImportHook<&::ExpandEnvironmentStringsW>;

DWORD FailToExpand(LPCWSTR /*source*/, LPWSTR /*buffer*/, DWORD /*size*/) {
    return 0;
}

TEST(ExpandEnvironmentPath, ReplacesVariablesAndKeepsTheRest) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\here");
    const EnvironmentVariable empty(L"FinasetTestsEmpty", L"");
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"", L""},
        {L"C:\\plain", L"C:\\plain"},
        {L"%FinasetTests%", L"C:\\here"},
        {L"%finasettests%\\a\\%FinasetTests%", L"C:\\here\\a\\C:\\here"},
        {L"%FinasetTestsUnset%\\a", L"%FinasetTestsUnset%\\a"},
        {L"100% sure", L"100% sure"},
    };
    for (const auto& [path, expanded] : rows) {
        EXPECT_EQ(ExpandEnvironmentPath(path), expanded);
    }
}

TEST(ExpandEnvironmentPath, KnowsTheProgramDataDirectory) {
    wchar_t directory[MAX_PATH] = {};
    ASSERT_NE(::GetEnvironmentVariableW(L"ProgramData", directory, MAX_PATH), 0U);
    EXPECT_EQ(ExpandEnvironmentPath(L"%programdata%\\a"), std::wstring(directory) + L"\\a");
}

TEST(ExpandEnvironmentPath, IsEmptyIfThePlatformFails) {
    const ExpandHook hook([](LPCWSTR, LPWSTR buffer, DWORD) -> DWORD {
        buffer[0] = L'x';
        return 0;
    });
    EXPECT_EQ(ExpandEnvironmentPath(L"C:\\a"), L"");
}

TEST(ExpandEnvironmentPath, OffersABufferOf2048Characters) {
    const RecordedImport<&::ExpandEnvironmentStringsW> expand;
    EXPECT_EQ(ExpandEnvironmentPath(L"C:\\a"), L"C:\\a");
    EXPECT_EQ(expand.Made(), Calls{Call(L"C:\\a", Some, 2048)});
}

TEST(ExpandEnvironmentPath, HoldsUpTo2047Characters) {
    const std::wstring longest(2047, L'x');
    EXPECT_EQ(ExpandEnvironmentPath(longest), longest);
}

TEST(ExpandEnvironmentPath, NeverExceedsTheBufferIfTheResultIsLonger) {
    const EnvironmentVariable variable(L"FinasetTests", std::wstring(1500, L'x'));
    for (const std::wstring& path : {std::wstring(L"%FinasetTests%%FinasetTests%"),
                                     std::wstring(2048, L'x'), std::wstring(5000, L'x')}) {
        const std::wstring expanded = ExpandEnvironmentPath(path);
        EXPECT_LE(expanded.size(), 2048U);
        EXPECT_THAT(expanded, Each(L'x'));
    }
}

TEST(ExpandEnvironmentPath, TakesAFullBufferWithoutAZero) {
    const ExpandHook hook([](LPCWSTR, LPWSTR buffer, DWORD size) {
        std::fill_n(buffer, size, L'x');
        return size + 1;
    });
    EXPECT_EQ(ExpandEnvironmentPath(L"C:\\a"), std::wstring(2048, L'x'));
}

TEST(ExpandEnvironmentPath, StartsFromABufferOfZeros) {
    int calls = 0;
    const ExpandHook hook([&](LPCWSTR, LPWSTR buffer, DWORD size) {
        // The first call leaves something for the second one to find in the same place.
        std::fill_n(buffer, ++calls == 1 ? size : 0, L'x');
        return size + 1;
    });
    ExpandEnvironmentPath(L"C:\\a");
    EXPECT_EQ(ExpandEnvironmentPath(L"C:\\a"), L"");
}

TEST(GetPathAttributes, ReturnsWhatExists) {
    const test::TemporaryDirectory directory;
    test::MakeFile(directory / L"file");
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    EXPECT_NE(GetPathAttributes(directory.Path()) & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_EQ(GetPathAttributes(directory / L"file") & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_EQ(GetPathAttributes(L"%FinasetTests%\\file"), GetPathAttributes(directory / L"file"));
    EXPECT_EQ(GetPathAttributes(directory / L"missing"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetPathAttributes(L"%FinasetTestsUnset%\\file"), INVALID_FILE_ATTRIBUTES);
}

TEST(GetPathAttributes, AsksThePlatformNothingAboutAnEmptyPath) {
    const RecordedImport<&::ExpandEnvironmentStringsW> expand;
    const RecordedImport<&::GetFileAttributesW> attributes;
    EXPECT_EQ(GetPathAttributes(L""), 0xFFFFFFFF);
    EXPECT_EQ(expand.Made(), Calls{});
    EXPECT_EQ(attributes.Made(), Calls{});
}

TEST(GetPathAttributes, AsksAboutTheExpandedPathOnce) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\here");
    const RecordedImport<&::GetFileAttributesW> attributes([](LPCWSTR) { return 0x1234U; });
    EXPECT_EQ(GetPathAttributes(L"%FinasetTests%\\a"), 0x1234U);
    EXPECT_EQ(attributes.Made(), Calls{Call(L"C:\\here\\a")});
}

TEST(GetPathAttributes, FindsNothingIfTheExpansionFails) {
    const ExpandHook hook(&FailToExpand);
    EXPECT_EQ(GetPathAttributes(L"C:\\"), INVALID_FILE_ATTRIBUTES);
}

TEST(PathExists, UnlessThereAreNoAttributes) {
    const std::pair<DWORD, bool> rows[] = {{INVALID_FILE_ATTRIBUTES, false},
                                           {0, true},
                                           {FILE_ATTRIBUTE_DIRECTORY, true},
                                           {FILE_ATTRIBUTE_NORMAL, true},
                                           {0xFFFF'FFFE, true}};
    for (const auto& [found, exists] : rows) {
        const RecordedImport<&::GetFileAttributesW> attributes(
            [attributes = found](LPCWSTR) { return attributes; });
        EXPECT_EQ(PathExists(L"C:\\a"), exists) << "attributes " << found;
        EXPECT_EQ(attributes.Made(), Calls{Call(L"C:\\a")});
    }
    EXPECT_FALSE(PathExists(L""));
}

TEST(PathExists, ForFilesAndDirectoriesWithTheirVariablesExpanded) {
    const test::TemporaryDirectory directory;
    test::MakeFile(directory / L"file");
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    EXPECT_TRUE(PathExists(L"%FinasetTests%"));
    EXPECT_TRUE(PathExists(L"%FinasetTests%\\file"));
    EXPECT_FALSE(PathExists(L"%FinasetTests%\\missing"));
}

TEST(ParentDirectoryOf, IsDriveAndDirectoryWithTheTrailingBackslash) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\here\\below");
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"C:\\a\\b", L"C:\\a\\"},
        {L"C:\\a.b\\c", L"C:\\a.b\\"},
        {L"C:\\a\\b.txt", L"C:\\a\\"},
        {L"C:\\a\\b\\", L"C:\\a\\b\\"},
        {L"C:\\a", L"C:\\"},
        {L"C:\\", L"C:\\"},
        {L"C:", L"C:"},
        {L"C:a", L"C:"},
        {L"\\a\\b", L"\\a\\"},
        {L"a\\b", L"a\\"},
        {L"\\\\server\\share\\a\\b", L"\\\\server\\share\\a\\"},
        {L"name.txt", L""},
        {L"name", L""},
        {L"", L""},
        {L"C:/a/b", L"C:/a/"},
        {L"%FinasetTests%", L"C:\\here\\"},
        {L"%FinasetTests%\\file", L"C:\\here\\below\\"},
    };
    for (const auto& [path, parent] : rows) {
        EXPECT_EQ(ParentDirectoryOf(path), parent) << "of " << testing::PrintToString(path);
    }
}

TEST(ParentDirectoryOf, IsEmptyIfTheDirectoryExceedsItsBuffer) {
    // 260 characters hold 259 and a zero.
    const std::wstring longest = L"\\" + std::wstring(257, L'd') + L"\\";
    EXPECT_EQ(ParentDirectoryOf(L"C:" + longest + L"name"), L"C:" + longest);
    EXPECT_EQ(ParentDirectoryOf(L"C:\\d" + longest + L"name"), L"");
}

TEST(ParentDirectoryOf, IsNotLimitedByTheName) {
    const std::wstring name(300, L'n');
    EXPECT_EQ(ParentDirectoryOf(L"C:\\a\\" + name + L"." + name), L"C:\\a\\");
}

TEST(ParentDirectoryOf, AsksForDriveAndDirectoryOnly) {
    const RecordedImport<static_cast<test::SplitPath*>(&::_wsplitpath_s)> split;
    EXPECT_EQ(ParentDirectoryOf(L"C:\\a\\b"), L"C:\\a\\");
    EXPECT_EQ(split.Made(), Calls{Call(L"C:\\a\\b", Some, 260, Some, 260, nullptr, 0, nullptr, 0)});
}

TEST(ParentDirectoryOf, IsEmptyIfTheSplitFails) {
    const ImportHook<static_cast<test::SplitPath*>(&::_wsplitpath_s)> hook(
        [](const wchar_t*, wchar_t* drive, size_t, wchar_t* directory, size_t, wchar_t*, size_t,
           wchar_t*, size_t) -> errno_t {
            drive[0] = directory[0] = L'x';
            return EINVAL;
        });
    EXPECT_EQ(ParentDirectoryOf(L"C:\\a\\b"), L"");
}

TEST(ParentDirectoryOf, IsEmptyIfTheExpansionFails) {
    const ExpandHook hook(&FailToExpand);
    EXPECT_EQ(ParentDirectoryOf(L"C:\\a\\b"), L"");
}

TEST(PathLevels, AreTheBeginningsThatEndBeforeABackslash) {
    const std::pair<const wchar_t*, std::vector<std::wstring>> rows[] = {
        {L"", {}},
        {L"C:", {L"C:"}},
        {L"C:\\", {L"C:"}},
        {L"C:\\a\\b", {L"C:", L"C:\\a", L"C:\\a\\b"}},
        {L"C:\\a\\b\\", {L"C:", L"C:\\a", L"C:\\a\\b"}},
        {L"C:\\a\\\\b", {L"C:", L"C:\\a", L"C:\\a\\", L"C:\\a\\\\b"}},
        {L"C:\\a\\\\", {L"C:", L"C:\\a", L"C:\\a\\"}},
        {L"a b/c\\d", {L"a b/c", L"a b/c\\d"}},
        {L"\\a", {L"", L"a"}},
        {L"\\\\s\\t", {L"", L"", L"s", L"s\\t"}},
        {L"%unset%\\a", {L"%unset%", L"%unset%\\a"}},
    };
    for (const auto& [path, levels] : rows) {
        EXPECT_EQ(PathLevels(path), levels) << "of " << testing::PrintToString(path);
    }
}

bool IsDirectory(const std::wstring& path) {
    const DWORD attributes = GetPathAttributes(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

TEST(CreateDirectoryPath, CreatesEveryMissingLevel) {
    const test::TemporaryDirectory directory;
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    for (const wchar_t* below : {L"a\\b\\c", L"a\\b\\d\\", L"e\\\\f", L"a g"}) {
        EXPECT_TRUE(CreateDirectoryPath(directory / below));
        EXPECT_TRUE(IsDirectory(directory / below));
    }
    EXPECT_TRUE(CreateDirectoryPath(L"%FinasetTests%\\h\\i"));
    EXPECT_TRUE(IsDirectory(directory / L"h\\i"));
}

TEST(CreateDirectoryPath, CallsNothingAndReturnsFalseIfAllExists) {
    const test::TemporaryDirectory directory;
    const RecordedImport<&::CreateDirectoryW> create;
    EXPECT_FALSE(CreateDirectoryPath(directory.Path()));
    EXPECT_FALSE(CreateDirectoryPath(directory.Path() + L"\\"));
    EXPECT_FALSE(CreateDirectoryPath(L"C:"));
    EXPECT_FALSE(CreateDirectoryPath(L"C:\\"));
    EXPECT_FALSE(CreateDirectoryPath(L""));
    EXPECT_EQ(create.Made(), Calls{});
}

TEST(CreateDirectoryPath, TakesAFileForAnExistingLevel) {
    const test::TemporaryDirectory directory;
    test::MakeFile(directory / L"file");
    EXPECT_FALSE(CreateDirectoryPath(directory / L"file"));
    EXPECT_FALSE(CreateDirectoryPath(directory / L"file\\below"));
}

TEST(CreateDirectoryPath, CreatesNothingIfTheExpansionFails) {
    const ExpandHook hook(&FailToExpand);
    const RecordedImport<&::CreateDirectoryW> create;
    EXPECT_FALSE(CreateDirectoryPath(L"C:\\FinasetTests missing"));
    EXPECT_EQ(create.Made(), Calls{});
}

TEST(CreateDirectoryPath, GivesNoSecurityAttributes) {
    const test::TemporaryDirectory directory;
    const RecordedImport<&::CreateDirectoryW> create;
    EXPECT_TRUE(CreateDirectoryPath(directory / L"a"));
    EXPECT_EQ(create.Made(), Calls{Call(directory / L"a", nullptr)});
}

// A file system that only records the calls.
class ImaginedFiles {
public:
    // Only `existing` exists, and only `creatable` can be created.
    ImaginedFiles(std::vector<std::wstring> existing, std::vector<std::wstring> creatable)
        : existing_(std::move(existing)), creatable_(std::move(creatable)) {}

    [[nodiscard]] const std::vector<std::wstring>& Created() const { return created_; }

private:
    static bool Contains(const std::vector<std::wstring>& paths, const std::wstring& path) {
        return std::ranges::find(paths, path) != paths.end();
    }

    std::vector<std::wstring> existing_;
    std::vector<std::wstring> creatable_;
    std::vector<std::wstring> created_;

    ImportHook<&::GetFileAttributesW> attributes_{[this](LPCWSTR path) {
        return Contains(existing_, path) ? DWORD{FILE_ATTRIBUTE_DIRECTORY}
                                         : INVALID_FILE_ATTRIBUTES;
    }};
    ImportHook<&::CreateDirectoryW> create_{[this](LPCWSTR path, LPSECURITY_ATTRIBUTES) -> BOOL {
        created_.emplace_back(path);
        return Contains(creatable_, path) ? TRUE : FALSE;
    }};
};

TEST(CreateDirectoryPath, ReturnsTheOutcomeOfTheLastLevelThatWasMissing) {
    {
        const ImaginedFiles files({L"C:"}, {L"C:\\a\\b"});
        EXPECT_TRUE(CreateDirectoryPath(L"C:\\a\\b"));
        EXPECT_THAT(files.Created(), ElementsAre(L"C:\\a", L"C:\\a\\b"));
    }
    {
        const ImaginedFiles files({L"C:"}, {L"C:\\a"});
        EXPECT_FALSE(CreateDirectoryPath(L"C:\\a\\b"));
        EXPECT_THAT(files.Created(), ElementsAre(L"C:\\a", L"C:\\a\\b"));
    }
    {
        const ImaginedFiles files({L"C:", L"C:\\a\\b"}, {L"C:\\a"});
        EXPECT_TRUE(CreateDirectoryPath(L"C:\\a\\b"));
        EXPECT_THAT(files.Created(), ElementsAre(L"C:\\a"));
    }
}

TEST(CreateDirectoryPath, GoesOnAfterALevelThatFails) {
    const ImaginedFiles files({L"C:"}, {});
    EXPECT_FALSE(CreateDirectoryPath(L"C:\\a\\b\\c"));
    EXPECT_THAT(files.Created(), ElementsAre(L"C:\\a", L"C:\\a\\b", L"C:\\a\\b\\c"));
}

TEST(CreateDirectoryPath, KeepsADoubledBackslash) {
    const ImaginedFiles files({L"C:", L"C:\\a"}, {});
    CreateDirectoryPath(L"C:\\a\\\\b");
    EXPECT_THAT(files.Created(), ElementsAre(L"C:\\a\\", L"C:\\a\\\\b"));
}

// It loses its leading backslashes on purpose, so what follows is relative.
TEST(CreateDirectoryPath, BeginsANetworkPathWithTwoEmptyLevels) {
    const ImaginedFiles files({}, {L"server\\share\\a"});
    EXPECT_TRUE(CreateDirectoryPath(L"\\\\server\\share\\a"));
    EXPECT_THAT(files.Created(),
                ElementsAre(L"", L"", L"server", L"server\\share", L"server\\share\\a"));
}

TEST(JoinPath, PutsOneBackslashBetweenUnlessThereIsOneOrNoDirectory) {
    const struct {
        const wchar_t* directory;
        const wchar_t* name;
        const wchar_t* joined;
    } rows[] = {
        {L"C:\\a", L"b", L"C:\\a\\b"},
        {L"C:\\a\\", L"b", L"C:\\a\\b"},
        {L"", L"b", L"b"},
        {L"C:\\a", L"", L"C:\\a\\"},
        {L"C:\\a\\", L"", L"C:\\a\\"},
        {L"", L"", L""},
        {L"\\", L"b", L"\\b"},
        {L"C:/a/", L"b", L"C:/a/\\b"},
        {L"%a%", L"%b%", L"%a%\\%b%"},
        {L"C:\\a", L"\\b", L"C:\\a\\\\b"},
    };
    for (const auto& [directory, name, joined] : rows) {
        EXPECT_EQ(JoinPath(directory, name), joined);
    }
}

TEST(TemporaryDirectory, IsEmptyAndGoneAtTheEndWithAllThatIsInIt) {
    std::wstring path;
    {
        const test::TemporaryDirectory directory;
        path = directory.Path();
        EXPECT_TRUE(IsDirectory(path));
        CreateDirectoryPath(directory / L"a\\b");
        test::MakeFile(directory / L"a\\b\\c");
        EXPECT_EQ(GetPathAttributes(directory / L"a\\b\\c") & FILE_ATTRIBUTE_DIRECTORY, 0U);
    }
    EXPECT_EQ(GetPathAttributes(path), INVALID_FILE_ATTRIBUTES);
}

}  // namespace
