// Paths with more characters than the buffers of the path helpers, or the platform, can hold.

#include "driver/usage.h"
#include "fs/path_helpers.h"
#include "support/environment_variable.h"
#include "support/on_wine.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

// A path of so many characters.
std::wstring PathOfLength(std::size_t length) {
    return L"C:\\" + std::wstring(length - 3, L'x');
}

// What a longer result leaves in the buffer is up to the platform: Wine truncates it.
TEST(LongPaths, AreCutOffAt2047CharactersByTheirExpansion) {
    if (!test::OnWine()) {
        GTEST_SKIP() << "not Wine";
    }
    const test::EnvironmentVariable variable(L"FinasetTests", std::wstring(2000, L'v'));
    for (const std::size_t length : {2048U, 2049U, 5000U}) {
        EXPECT_EQ(ExpandEnvironmentPath(PathOfLength(length)), PathOfLength(2047));
    }
    EXPECT_EQ(ExpandEnvironmentPath(L"C:\\%FinasetTests%" + std::wstring(100, L'x')),
              L"C:\\" + std::wstring(2000, L'v') + std::wstring(44, L'x'));
}

TEST(LongPaths, LeadNowhereBeyondTheBuffer) {
    EXPECT_EQ(GetPathAttributes(PathOfLength(5000)), INVALID_FILE_ATTRIBUTES);
    EXPECT_FALSE(PathExists(PathOfLength(5000)));
    EXPECT_FALSE(CreateDirectoryPath(L"C:\\no such directory?\\" + std::wstring(5000, L'x')));
    // What is left of the path is up to the platform, as above.
    EXPECT_THAT(ParentDirectoryOf(PathOfLength(5000)), testing::AnyOf(L"C:\\", L""));
    EXPECT_EQ(GetFileTitle(PathOfLength(5000)), L"");
}

// A directory of more than 260 characters. Windows would need a manifest for it, or a prefix.
TEST(LongPaths, AreCreatedAndFoundByWineAlone) {
    const test::TemporaryDirectory directory;
    std::wstring parent = directory.Path();
    while (parent.size() <= MAX_PATH) {
        parent += L"\\" + std::wstring(60, L'd');
    }
    const std::wstring path = parent + L"\\title.extension";
    EXPECT_EQ(CreateDirectoryPath(path), test::OnWine());
    EXPECT_EQ(PathExists(path), test::OnWine());
    EXPECT_EQ(GetPathAttributes(path),
              test::OnWine() ? DWORD{FILE_ATTRIBUTE_DIRECTORY} : INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(ParentDirectoryOf(path), L"");  // its part for the directory is longer than 259
    EXPECT_EQ(GetFileTitle(path), L"title");
    // By the prefix: they are too long for the directory's end.
    for (std::wstring level = path; level != directory.Path(); level.resize(level.rfind(L'\\'))) {
        ::RemoveDirectoryW((L"\\\\?\\" + level).c_str());
    }
}

TEST(LongPaths, AreJoinedAndSplitAtAnyLength) {
    const std::wstring component(5000, L'x');
    EXPECT_EQ(JoinPath(component, component), component + L"\\" + component);
    EXPECT_THAT(PathLevels(component + L"\\" + component),
                testing::ElementsAre(component, component + L"\\" + component));
}

}  // namespace
