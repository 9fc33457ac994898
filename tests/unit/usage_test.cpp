#include "driver/usage.h"

#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/import_hook.h"
#include "support/log_texts.h"
#include "support/split_path.h"

#include <windows.h>

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(GetFileTitle, DropsDirectoryAndExtension) {
    const struct {
        const wchar_t* path;
        const wchar_t* title;
    } rows[] = {
        {L"C:\\Program Files\\X\\Finaset.exe", L"Finaset"},
        {L"..\\Finaset.exe", L"Finaset"},
        {L"C:/a/Finaset.exe", L"Finaset"},
        {L"C:Finaset.exe", L"Finaset"},
        {L"\\\\server\\share\\Finaset.EXE", L"Finaset"},
        {L"Finaset.exe", L"Finaset"},
        {L"Finaset", L"Finaset"},
        {L"C:\\a.b\\Finaset", L"Finaset"},
        {L"C:\\a.b\\one.two.three.exe", L"one.two.three"},
        {L"one.", L"one"},
        {L".exe", L""},
        {L"C:\\a b\\", L""},
        {L"C:", L""},
        {L"", L""},
        {L"C:\\a\\Tarsel\u00AE x.exe", L"Tarsel\u00AE x"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(GetFileTitle(row.path), row.title);
    }
}

TEST(GetFileTitle, ExpandsVariables) {
    const test::EnvironmentVariable variable(L"FINASET_TEST", L"C:\\some where\\title.txt");
    EXPECT_EQ(GetFileTitle(L"%FINASET_TEST%"), L"title");
    EXPECT_EQ(GetFileTitle(L"%FINASET_TEST%.exe"), L"title.txt");
    EXPECT_EQ(GetFileTitle(L"%FINASET_NO_SUCH_TEST%.exe"), L"%FINASET_NO_SUCH_TEST%");
}

TEST(GetFileTitle, HoldsUpTo259Characters) {
    const std::wstring longest(259, L'x');
    EXPECT_EQ(GetFileTitle(L"C:\\" + longest + L".exe"), longest);
    EXPECT_EQ(GetFileTitle(L"C:\\" + longest + L"x.exe"), L"");
    EXPECT_EQ(GetFileTitle(L"C:\\" + std::wstring(1000, L'x')), L"");
}

TEST(GetFileTitle, DoesNotMindALongDirectoryOrExtension) {
    EXPECT_EQ(GetFileTitle(std::wstring(500, L'd') + L"\\Finaset." + std::wstring(500, L'e')),
              L"Finaset");
}

TEST(GetFileTitle, IsEmptyIfThePathCannotBeSplitWhateverTheBufferHolds) {
    test::ImportHook<static_cast<test::SplitPath*>(&::_wsplitpath_s)> split(
        [](auto, auto, auto, auto, auto, wchar_t* title, auto...) {
            title[0] = L'x';
            return ERANGE;
        });
    EXPECT_EQ(GetFileTitle(L"C:\\Finaset.exe"), L"");
}

TEST(GetFileTitle, IsEmptyIfTheExpansionFails) {
    test::ImportHook<&::ExpandEnvironmentStringsW> expand([](auto...) { return 0u; });
    EXPECT_EQ(GetFileTitle(L"C:\\Finaset.exe"), L"");
}

TEST(PrintUsage, NamesTheProgramAndItsOptions) {
    EXPECT_EQ(test::Printed([] { PrintUsage(L"C:\\Program Files\\X\\The Program.exe"); }),
              test::UsageText("The Program"));
}

TEST(PrintUsage, NamesNothingIfThereIsNoTitle) {
    EXPECT_TRUE(test::Printed([] { PrintUsage(L""); }).starts_with("\r\n [/<Option>]\r\n"));
}

}  // namespace
