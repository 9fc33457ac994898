#include "proc/process.h"

#include "support/fake_processes.h"
#include "support/import_hook.h"

#include <windows.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

using test::FakeProcesses;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class LaunchProcessTest : public testing::Test {
protected:
    bool Launch(HANDLE token, const std::wstring& application, const std::wstring& arguments) {
        return LaunchProcess(token, application, arguments, info, startup);
    }

    // The caller's duties after a launch.
    void CloseHandles() const {
        ::CloseHandle(info.hProcess);
        ::CloseHandle(info.hThread);
    }

    FakeProcesses fake;
    PROCESS_INFORMATION info = {};
    STARTUPINFOW startup = {};
};

TEST_F(LaunchProcessTest, StartsUnderNoTokenAsTheProgramsOwnUser) {
    EXPECT_TRUE(Launch(nullptr, L"C:\\a.exe", L"-u"));
    EXPECT_THAT(fake.calls.Lines(), ElementsAre("CreateProcessW(no token, null, C:\\a.exe -u, 1, "
                                                "0, all null, startup all zero)"));
    CloseHandles();
}

TEST_F(LaunchProcessTest, StartsUnderATokenAsItsUser) {
    HANDLE token = nullptr;
    ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_TRUE(Launch(token, L"a.exe", L"-u"));
    EXPECT_THAT(fake.calls.Of("CreateProcessAsUserW"),
                ElementsAre("CreateProcessAsUserW(token, null, a.exe -u, 1, 0, all null, startup "
                            "all zero)"));
    EXPECT_THAT(fake.calls.Of("CreateProcessW"), IsEmpty());
    CloseHandles();
    ::CloseHandle(token);
}

TEST_F(LaunchProcessTest, NeverQuotesAndAlwaysHasABlankAfterTheApplication) {
    const struct {
        const wchar_t* application;
        const wchar_t* arguments;
        const char* commandLine;
    } rows[] = {
        {L"C:\\Program Files\\a b.exe", L"", "C:\\Program Files\\a b.exe "},
        {L"C:\\Program Files\\a b.exe", L"c d", "C:\\Program Files\\a b.exe c d"},
        {L"a.exe", L"\"c d\"", "a.exe \"c d\""},
        {L"", L"", " "},
        {L"a\u00AE.exe", L"\u00AE", "a\xAE.exe \xAE"},
    };
    for (const auto& row : rows) {
        Launch(nullptr, row.application, row.arguments);
        EXPECT_EQ(fake.calls.Lines().back(), std::string("CreateProcessW(no token, null, ") +
                                                 row.commandLine +
                                                 ", 1, 0, all null, startup all zero)");
        CloseHandles();
    }
}

TEST_F(LaunchProcessTest, FillsTheProcessInformation) {
    ASSERT_TRUE(Launch(nullptr, L"a.exe", L""));
    EXPECT_EQ(info.dwProcessId, 1234U);
    EXPECT_EQ(info.dwThreadId, 1235U);
    EXPECT_FALSE(fake.AllClosed());
    CloseHandles();
    EXPECT_TRUE(fake.AllClosed());
}

TEST_F(LaunchProcessTest, FailsWithThePlatform) {
    fake.launches = false;
    HANDLE token = nullptr;
    ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_FALSE(Launch(nullptr, L"a.exe", L""));
    EXPECT_FALSE(Launch(token, L"a.exe", L""));
    ::CloseHandle(token);
}

// The platform gets the caller's own records, not copies.
TEST(LaunchProcess, PassesItsRecordsThrough) {
    PROCESS_INFORMATION info = {};
    STARTUPINFOW startup = {};
    std::pair<void*, void*> seen;
    test::ImportHook<&::CreateProcessW> create([&](LPCWSTR, LPWSTR, auto*, auto*, BOOL, DWORD,
                                                   LPVOID, LPCWSTR, LPSTARTUPINFOW startupSeen,
                                                   LPPROCESS_INFORMATION infoSeen) {
        seen = {startupSeen, infoSeen};
        return FALSE;
    });
    test::ImportHook<&::CreateProcessAsUserW> createAsUser(
        [&](HANDLE, LPCWSTR, LPWSTR, auto*, auto*, BOOL, DWORD, LPVOID, LPCWSTR,
            LPSTARTUPINFOW startupSeen, LPPROCESS_INFORMATION infoSeen) {
            seen = {startupSeen, infoSeen};
            return FALSE;
        });
    for (const HANDLE token : {HANDLE{nullptr}, ::GetCurrentProcess()}) {
        seen = {};
        EXPECT_FALSE(LaunchProcess(token, L"a.exe", L"", info, startup));
        EXPECT_EQ(seen.first, &startup);
        EXPECT_EQ(seen.second, &info);
    }
}

TEST(LaunchProcess, FailsForAMissingProgram) {
    PROCESS_INFORMATION info = {};
    STARTUPINFOW startup = {};
    EXPECT_FALSE(LaunchProcess(nullptr, L"C:\\no such directory\\a.exe", L"", info, startup));
}

TEST(RunProcess, StartsTheProgramAndWaitsForIt) {
    const FakeProcesses fake;
    EXPECT_TRUE(RunProcess(nullptr, L"C:\\a b.exe", L"-u", 1234));
    EXPECT_THAT(fake.calls.Lines(),
                UnorderedElementsAre("CreateProcessW(no token, null, C:\\a b.exe -u, 1, 0, all "
                                     "null, startup all zero)",
                                     "WaitForSingleObject(new process, 1234)",
                                     "CloseHandle(new process)", "CloseHandle(new thread)"));
    EXPECT_THAT(fake.calls.Lines()[1], testing::StartsWith("WaitForSingleObject"));
}

TEST(RunProcess, StartsUnderAToken) {
    const FakeProcesses fake;
    HANDLE token = nullptr;
    ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_TRUE(RunProcess(token, L"a.exe", L"", 0));
    EXPECT_THAT(fake.calls.Of("CreateProcessAsUserW"),
                ElementsAre("CreateProcessAsUserW(token, null, a.exe , 1, 0, all null, startup all "
                            "zero)"));
    EXPECT_THAT(fake.calls.Of("WaitForSingleObject"),
                ElementsAre("WaitForSingleObject(new process, 0)"));
    ::CloseHandle(token);
    EXPECT_TRUE(fake.AllClosed());
}

TEST(RunProcess, TakesEveryEndOfTheWaitButATimeoutForTheProgramsEnd) {
    const std::pair<DWORD, bool> rows[] = {
        {WAIT_OBJECT_0, true}, {WAIT_TIMEOUT, false}, {WAIT_FAILED, true}, {WAIT_ABANDONED, true}};
    FakeProcesses fake;
    for (const auto& [waitResult, ended] : rows) {
        fake.waitResult = waitResult;
        EXPECT_EQ(RunProcess(nullptr, L"a.exe", L"", 1000), ended) << "wait result " << waitResult;
        EXPECT_TRUE(fake.AllClosed());
    }
}

TEST(RunProcess, DoesNotWaitForWhatDidNotStart) {
    FakeProcesses fake;
    fake.launches = false;
    EXPECT_FALSE(RunProcess(nullptr, L"a.exe", L"", 1000));
    EXPECT_THAT(fake.calls.Lines(), testing::SizeIs(1));
}

TEST(GetProcessImagePath, AsksNothingForNoProcess) {
    const FakeProcesses fake;
    EXPECT_EQ(GetProcessImagePath(nullptr), L"");
    EXPECT_THAT(fake.calls.Lines(), IsEmpty());
}

TEST(GetProcessImagePath, AsksForTheWin32PathInABufferOf260Characters) {
    FakeProcesses fake;
    EXPECT_EQ(GetProcessImagePath(::GetCurrentProcess()), fake.ownPath);
    EXPECT_THAT(fake.calls.Lines(), ElementsAre("QueryFullProcessImageNameW(own process, 0, 260)"));
}

TEST(GetProcessImagePath, HoldsUpTo259Characters) {
    FakeProcesses fake;
    fake.ownPath = L"C:\\" + std::wstring(256, L'x');
    EXPECT_EQ(GetProcessImagePath(::GetCurrentProcess()), fake.ownPath);
}

TEST(GetProcessImagePath, IsEmptyOnFailureWhateverTheBufferHolds) {
    FakeProcesses fake;
    fake.ownPath.clear();
    EXPECT_EQ(GetProcessImagePath(::GetCurrentProcess()), L"");
}

TEST(GetProcessImagePath, IsThePathOfThisProgram) {
    wchar_t path[MAX_PATH] = {};
    ASSERT_NE(::GetModuleFileNameW(nullptr, path, MAX_PATH), 0U);
    // Windows gives the one as it was started, perhaps by short names, and the other as it is.
    EXPECT_TRUE(std::filesystem::equivalent(GetProcessImagePath(::GetCurrentProcess()), path));
}

TEST(GetOwnDirectory, EndsWithTheLastBackslashOfThisProgramsPath) {
    const struct {
        const wchar_t* path;
        const wchar_t* directory;
    } rows[] = {
        {L"C:\\Program Files\\X\\Finaset.exe", L"C:\\Program Files\\X\\"},
        {L"C:\\Finaset.exe", L"C:\\"},  // at index 2
        {L"ab\\c", L"ab\\"},
        {L"a\\Finaset.exe", L""},  // at index 1
        {L"\\\\Finaset.exe", L""},
        {L"\\Finaset.exe", L""},  // at index 0
        {L"Finaset.exe", L""},    // none
        {L"C:/a/Finaset.exe", L""},
        {L"", L""},  // the path is unknown
        {L"\\\\server\\share\\Finaset.exe", L"\\\\server\\share\\"},
        {L"C:\\a\\", L"C:\\a\\"},
    };
    FakeProcesses fake;
    for (const auto& row : rows) {
        fake.ownPath = row.path;
        EXPECT_EQ(GetOwnDirectory(), row.directory) << "path " << test::Narrow(row.path);
        EXPECT_EQ(fake.calls.Lines().back(), "QueryFullProcessImageNameW(own process, 0, 260)");
    }
}

TEST(GetOwnDirectory, IsTheDirectoryOfThisProgram) {
    const std::wstring directory = GetOwnDirectory();
    ASSERT_FALSE(directory.empty());
    EXPECT_EQ(directory.back(), L'\\');
    EXPECT_TRUE(GetProcessImagePath(::GetCurrentProcess()).starts_with(directory));
    EXPECT_NE(::GetFileAttributesW((directory + L"unit_tests.exe").c_str()),
              INVALID_FILE_ATTRIBUTES);
}

}  // namespace
