#include "fs/file_operations.h"

#include "fs/file_table.h"
#include "fs/path_helpers.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/on_wine.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <cstddef>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::EnvironmentVariable;
using test::FileText;
using test::ImportHook;
using test::Narrow;
using test::Printed;
using test::PutFile;
using test::RecordedImport;
using testing::ElementsAre;
using testing::Optional;

TEST(FileTable, HoldsTheConfigurationFiles) {
    const test::PrivateRegistry registry;
    const EnvironmentVariable programData(L"ProgramData", L"C:\\Data");
    const struct {
        bool overwrite;
        std::wstring name;
    } rows[] = {{false, L"user.xml"}, {true, L"oem.xml"}, {true, L"vx.stg"}};
    ASSERT_EQ(FileTable.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& [overwrite, fileName, resolve, source] = FileTable[i];
        EXPECT_EQ(overwrite, rows[i].overwrite);
        EXPECT_EQ(fileName, rows[i].name);
        EXPECT_EQ(source, L"%systemroot%\\system32\\drivers\\Tarsel\\ZEFIR\\" + rows[i].name);
        ASSERT_TRUE(resolve);
        EXPECT_EQ(resolve(L"a"), L"C:\\Data\\Tarsel\\Nimbus\\ConfigurationFiles\\a");
        EXPECT_EQ(resolve(L""), L"C:\\Data\\Tarsel\\Nimbus\\ConfigurationFiles\\");
    }
}

// The lines of one file's steps, each with its verdict.
std::string Deleting(const std::wstring& path, const char* verdict) {
    return "Deleting File " + Narrow(path) + " \t - \t" + verdict + "\r\n";
}

std::string Creating(const std::wstring& directory, const char* verdict) {
    return "Creating Directory " + Narrow(directory) + " \t - \t" + verdict + "\r\n";
}

std::string Copying(const std::wstring& source, const std::wstring& destination,
                    const char* overwriting, const char* verdict) {
    return "Copying File " + Narrow(source) + " -> " + Narrow(destination) +
           "     overwriting =" + overwriting + "\t - \t" + verdict + "\r\n";
}

constexpr char Success[] = "Success";
constexpr char Failure[] = "Failure";

// Files are shipped in one directory and copied to another, which does not exist at first.
class FileOperationsTest : public testing::Test {
protected:
    [[nodiscard]] std::wstring Shipped(const std::wstring& name) const {
        return directory / (L"shipped\\" + name);
    }
    [[nodiscard]] std::wstring Placed(const std::wstring& name) const {
        return directory / (L"placed\\a b\\" + name);
    }

    [[nodiscard]] FileOperation Operation(bool overwrite, const std::wstring& name) const {
        return {overwrite, name, [this](const std::wstring& file) { return Placed(file); },
                Shipped(name)};
    }

    // The lines of the directory to which files are copied, and of a file that is.
    [[nodiscard]] std::string Creation(const char* verdict) const {
        return Creating(Placed(L""), verdict);
    }
    [[nodiscard]] std::string CopyOf(const std::wstring& name, const char* overwriting,
                                     const char* verdict) const {
        return Copying(Shipped(name), Placed(name), overwriting, verdict);
    }

    static std::string LogOf(const std::vector<FileOperation>& operations) {
        return Printed([&] { RunFileOperations(operations); });
    }

    test::TemporaryDirectory directory;
};

TEST_F(FileOperationsTest, PrintNothingForAnEmptyTable) {
    EXPECT_EQ(LogOf({}), "");
}

TEST_F(FileOperationsTest, CopyTheFilesToANewDirectory) {
    PutFile(Shipped(L"keep"), "shipped keep");
    PutFile(Shipped(L"replace"), "shipped replace");
    EXPECT_EQ(LogOf({Operation(false, L"keep"), Operation(true, L"replace")}),
              Creation(Success) + CopyOf(L"keep", "false", Success) +
                  Deleting(Placed(L"replace"), Failure) + Creation(Failure) +
                  CopyOf(L"replace", "true", Success));
    EXPECT_THAT(FileText(Placed(L"keep")), Optional(std::string("shipped keep")));
    EXPECT_THAT(FileText(Placed(L"replace")), Optional(std::string("shipped replace")));
    EXPECT_THAT(FileText(Shipped(L"replace")), Optional(std::string("shipped replace")));
}

TEST_F(FileOperationsTest, KeepOrReplaceExistingFiles) {
    for (const wchar_t* name : {L"keep", L"replace"}) {
        PutFile(Shipped(name), "shipped");
        PutFile(Placed(name), "as it was, and longer");
    }
    EXPECT_EQ(LogOf({Operation(false, L"keep"), Operation(true, L"replace")}),
              Creation(Failure) + CopyOf(L"keep", "false", Failure) +
                  Deleting(Placed(L"replace"), Success) + Creation(Failure) +
                  CopyOf(L"replace", "true", Success));
    EXPECT_THAT(FileText(Placed(L"keep")), Optional(std::string("as it was, and longer")));
    EXPECT_THAT(FileText(Placed(L"replace")), Optional(std::string("shipped")));
}

TEST_F(FileOperationsTest, GoOnAfterAMissingSource) {
    PutFile(Shipped(L"there"), "shipped");
    PutFile(Placed(L"missing"), "as it was");
    EXPECT_EQ(LogOf({Operation(true, L"missing"), Operation(false, L"missing"),
                     Operation(false, L"there")}),
              Deleting(Placed(L"missing"), Success) + Creation(Failure) +
                  CopyOf(L"missing", "true", Failure) + Creation(Failure) +
                  CopyOf(L"missing", "false", Failure) + Creation(Failure) +
                  CopyOf(L"there", "false", Success));
    EXPECT_EQ(FileText(Placed(L"missing")), std::nullopt);
    EXPECT_THAT(FileText(Placed(L"there")), Optional(std::string("shipped")));
}

TEST_F(FileOperationsTest, FailForADestinationThatIsReadOnly) {
    PutFile(Shipped(L"a"), "shipped");
    PutFile(Placed(L"a"), "as it was");
    ::SetFileAttributesW(Placed(L"a").c_str(), FILE_ATTRIBUTE_READONLY);
    // As on Windows; Wine lets its administrator write.
    ImportHook<&::CopyFileW> copy([&](LPCWSTR source, LPCWSTR destination, BOOL fail) -> BOOL {
        return (::GetFileAttributesW(destination) & FILE_ATTRIBUTE_READONLY) == 0 &&
               copy.Forward(source, destination, fail);
    });
    EXPECT_EQ(LogOf({Operation(true, L"a")}),
              Deleting(Placed(L"a"), Failure) + Creation(Failure) + CopyOf(L"a", "true", Failure));
    EXPECT_THAT(FileText(Placed(L"a")), Optional(std::string("as it was")));
    ::SetFileAttributesW(Placed(L"a").c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(FileOperationsTest, FailForADestinationThatIsADirectory) {
    PutFile(Shipped(L"a"), "shipped");
    CreateDirectoryPath(Placed(L"a"));
    EXPECT_EQ(LogOf({Operation(true, L"a"), Operation(false, L"a")}),
              Deleting(Placed(L"a"), Failure) + Creation(Failure) + CopyOf(L"a", "true", Failure) +
                  Creation(Failure) + CopyOf(L"a", "false", Failure));
    EXPECT_NE(GetPathAttributes(Placed(L"a")) & FILE_ATTRIBUTE_DIRECTORY, 0U);
}

TEST_F(FileOperationsTest, TakeTheNameForTheDestinationWithoutAResolver) {
    PutFile(Shipped(L"a"), "shipped");
    EXPECT_EQ(LogOf({{true, Placed(L"b"), {}, Shipped(L"a")}}),
              Deleting(Placed(L"b"), Failure) + Creation(Success) +
                  Copying(Shipped(L"a"), Placed(L"b"), "true", Success));
    EXPECT_THAT(FileText(Placed(L"b")), Optional(std::string("shipped")));
}

TEST_F(FileOperationsTest, ResolveTheNameOnceForEachFile) {
    std::vector<std::wstring> asked;
    const auto resolve = [&](const std::wstring& name) {
        asked.push_back(name);
        return Placed(L"x");
    };
    LogOf({{true, L"%a%", resolve, L"none"}, {false, L"", resolve, L"none"}});
    EXPECT_THAT(asked, ElementsAre(L"%a%", L""));
}

TEST_F(FileOperationsTest, ShowAndUsePathsWithTheirVariablesExpanded) {
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    PutFile(Shipped(L"a"), "shipped");
    PutFile(Placed(L"a"), "as it was");
    EXPECT_EQ(LogOf({{true, L"%FinasetTests%\\placed\\a b\\a", {}, L"%FinasetTests%\\shipped\\a"}}),
              Deleting(Placed(L"a"), Success) + Creation(Failure) + CopyOf(L"a", "true", Success));
    EXPECT_THAT(FileText(Placed(L"a")), Optional(std::string("shipped")));
}

// The directory is already expanded: the result is expanded once more.
TEST_F(FileOperationsTest, ShowAndCreateTheDirectoryExpandedOnceMore) {
    const EnvironmentVariable inner(L"FinasetTestsInner", directory / L"inner");
    const EnvironmentVariable outer(L"FinasetTests", L"%FinasetTestsInner%");
    EXPECT_THAT(LogOf({{false, L"%FinasetTests%\\a", {}, Shipped(L"a")}}),
                testing::StartsWith(Creating(directory / L"inner\\", Success)));
    EXPECT_NE(GetPathAttributes(directory / L"inner"), INVALID_FILE_ATTRIBUTES);
}

TEST_F(FileOperationsTest, FailAndGoOnWithEmptyPathsIfTheExpansionFails) {
    PutFile(Shipped(L"a"), "shipped");
    const ImportHook<&::ExpandEnvironmentStringsW> expand([](auto...) { return 0; });
    EXPECT_EQ(LogOf({Operation(true, L"a"), Operation(false, L"a")}),
              "Deleting File  \t - \tFailure\r\n"
              "Creating Directory  \t - \tFailure\r\n"
              "Copying File  ->      overwriting =true\t - \tFailure\r\n"
              "Creating Directory  \t - \tFailure\r\n"
              "Copying File  ->      overwriting =false\t - \tFailure\r\n");
}

TEST_F(FileOperationsTest, DeleteOnlyExistingFiles) {
    PutFile(Placed(L"there"), "");
    const RecordedImport<&::DeleteFileW> deleteFile;
    LogOf({Operation(true, L"missing"), Operation(true, L"there"), Operation(false, L"there")});
    EXPECT_EQ(deleteFile.Made(), Calls{Call(Placed(L"there"))});
}

TEST_F(FileOperationsTest, ReportADeletionAsThePlatformDoes) {
    PutFile(Placed(L"a"), "");
    for (const BOOL deletes : {FALSE, TRUE, 2}) {
        const ImportHook<&::DeleteFileW> deleteFile([=](auto...) { return deletes; });
        EXPECT_THAT(LogOf({Operation(true, L"a")}),
                    testing::StartsWith(Deleting(Placed(L"a"), deletes ? Success : Failure)));
    }
}

TEST_F(FileOperationsTest, CopyEvenIfTheDirectoryCannotBeCreated) {
    const ImportHook<&::CreateDirectoryW> create([](auto...) { return FALSE; });
    const RecordedImport<&::CopyFileW> copy([](auto...) { return TRUE; });
    EXPECT_EQ(LogOf({Operation(false, L"a")}), Creation(Failure) + CopyOf(L"a", "false", Success));
    EXPECT_EQ(copy.Made(), Calls{Call(Shipped(L"a"), Placed(L"a"), 0)});
}

TEST_F(FileOperationsTest, FailBelowAFileInPlaceOfTheDirectory) {
    PutFile(Shipped(L"a"), "shipped");
    PutFile(directory / L"placed", "as it was");
    EXPECT_EQ(LogOf({Operation(false, L"a")}), Creation(Failure) + CopyOf(L"a", "false", Failure));
    EXPECT_THAT(FileText(directory / L"placed"), Optional(std::string("as it was")));
}

TEST_F(FileOperationsTest, CopyFilesOfAnyName) {
    for (const wchar_t* name : {L" a  b.xml", L"100%.xml", L"a\u00AE.xml", L".xml", L"a;b=c.x.y"}) {
        PutFile(Shipped(name), "shipped");
        EXPECT_THAT(LogOf({Operation(true, name)}),
                    testing::EndsWith(Copying(Shipped(name), Placed(name), "true", Success)));
        EXPECT_THAT(FileText(Placed(name)), Optional(std::string("shipped")));
    }
}

// How much of an unwritable line is written is up to the runtime; the verdict is.
TEST_F(FileOperationsTest, CopyFilesOfANameThatCannotBeShown) {
    PutFile(Shipped(L"\u4E2D\u20AC"), "shipped");
    EXPECT_THAT(LogOf({Operation(true, L"\u4E2D\u20AC")}), testing::EndsWith("Success\r\n"));
    EXPECT_THAT(FileText(Placed(L"\u4E2D\u20AC")), Optional(std::string("shipped")));
}

TEST_F(FileOperationsTest, CopyFilesOfTheProductsTable) {
    const test::PrivateRegistry registry;
    const EnvironmentVariable programData(L"ProgramData", directory / L"data");
    const EnvironmentVariable systemRoot(L"SystemRoot", directory / L"system");
    for (const FileOperation& file : FileTable) {
        PutFile(ExpandEnvironmentPath(file.sourcePath), Narrow(file.fileName));
    }
    const std::string printed = Printed([] { RunFileOperations(); });
    for (const FileOperation& file : FileTable) {
        EXPECT_THAT(FileText(test::DestinationOf(file)), Optional(Narrow(file.fileName)));
        std::filesystem::remove(test::DestinationOf(file));
    }
    std::filesystem::remove_all(directory / L"data");
    EXPECT_EQ(printed, LogOf(FileTable));
}

TEST_F(FileOperationsTest, CopyToTheDirectoryOfTheRegistry) {
    const test::PrivateRegistry registry;
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    test::PutValue(HKEY_LOCAL_MACHINE, test::ParametersKey, L"ConfigFileDirectory",
                   test::TextValue(L"%FinasetTests%\\moved\\"));
    const std::string log = Printed([] { RunFileOperations(); });
    EXPECT_THAT(log, testing::StartsWith(Creating(directory / L"moved\\\\", Success)));
    EXPECT_THAT(log, testing::HasSubstr(Deleting(directory / L"moved\\\\vx.stg", Failure)));
}

class CopyOneFileTest : public FileOperationsTest {};

TEST_F(CopyOneFileTest, NeverAsksThePlatformToFailForAnExistingFile) {
    const EnvironmentVariable variable(L"FinasetTests", L"C:\\here");
    for (const bool overwrite : {false, true}) {
        const RecordedImport<&::CopyFileW> copy([](auto...) { return TRUE; });
        EXPECT_TRUE(CopyOneFile(L"%FinasetTests%\\a", L"%FinasetTests%\\b", overwrite));
        EXPECT_EQ(copy.Made(), Calls{Call(L"C:\\here\\a", L"C:\\here\\b", 0)});
    }
}

TEST_F(CopyOneFileTest, KeepsAnExistingFileUnlessItMayBeOverwritten) {
    const EnvironmentVariable variable(L"FinasetTests", directory.Path());
    PutFile(Shipped(L"a"), "shipped");
    PutFile(directory / L"b", "as it was");
    const RecordedImport<&::CopyFileW> copy;
    EXPECT_FALSE(CopyOneFile(Shipped(L"a"), L"%FinasetTests%\\b", false));
    EXPECT_FALSE(CopyOneFile(Shipped(L"a"), directory.Path(), false));
    EXPECT_EQ(copy.Made(), Calls{});
    EXPECT_THAT(FileText(directory / L"b"), Optional(std::string("as it was")));
    EXPECT_TRUE(CopyOneFile(Shipped(L"a"), L"%FinasetTests%\\b", true));
    EXPECT_THAT(FileText(directory / L"b"), Optional(std::string("shipped")));
}

TEST_F(CopyOneFileTest, FailsWithThePlatform) {
    const RecordedImport<&::CopyFileW> copy([](auto...) { return FALSE; });
    EXPECT_FALSE(CopyOneFile(Shipped(L"a"), Placed(L"a"), false));
    EXPECT_FALSE(CopyOneFile(Shipped(L"a"), Placed(L"a"), true));
    EXPECT_EQ(copy.Made(), Calls(2, Call(Shipped(L"a"), Placed(L"a"), 0)));
}

TEST_F(CopyOneFileTest, CopiesANameAsLongAsThePlatformTakes) {
    // Windows counts the directory, even of a relative path.
    const std::size_t length = test::OnWine() ? 255 : MAX_PATH - 2 - directory.Path().size();
    const std::wstring name(length, L'n');
    PutFile(directory / L"a", "shipped");
    // Relative, as the whole path would exceed what Wine takes.
    wchar_t before[MAX_PATH] = {};
    ::GetCurrentDirectoryW(MAX_PATH, before);
    ::SetCurrentDirectoryW(directory.Path().c_str());
    const bool copied = CopyOneFile(L"a", name, true);
    const auto text = FileText(name);
    ::SetCurrentDirectoryW(before);
    EXPECT_TRUE(copied);
    EXPECT_THAT(text, Optional(std::string("shipped")));
}

}  // namespace
