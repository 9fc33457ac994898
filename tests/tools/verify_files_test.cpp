#include "config/path_resolvers.h"
#include "config/service_parameters.h"
#include "support/environment_variable.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"
#include "tools/verify_rows.h"
#include "verify/files.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using test::Denied;
using test::Shown;
using testing::ElementsAre;
using verify::CheckFiles;

class VerifiedFiles : public testing::Test {
protected:
    [[nodiscard]] std::vector<std::wstring> Rows(bool overwrite) const {
        const FileOperation operation = {overwrite, place_, {}, shipped_};
        return Shown(CheckFiles({&operation, 1}));
    }
    [[nodiscard]] std::wstring Replaced(const std::wstring& verdict,
                                        const std::wstring& found) const {
        return verdict + L" | file | " + place_ + L" | the same as " + shipped_ + L" | " + found;
    }
    [[nodiscard]] std::wstring Kept(const std::wstring& verdict, const std::wstring& found) const {
        return verdict + L" | file | " + place_ + L" | there | " + found;
    }

    test::TemporaryDirectory directory_;
    std::wstring shipped_ = directory_ / L"shipped";
    std::wstring place_ = directory_ / L"place";
};

TEST_F(VerifiedFiles, ThatAreReplacedAreTheShippedOnes) {
    test::PutFile(shipped_, "content");
    EXPECT_THAT(Rows(true), ElementsAre(Replaced(L"DIFFERS", L"absent")));
    test::PutFile(place_, "content");
    EXPECT_THAT(Rows(true), ElementsAre(Replaced(L"ok", L"the same")));
}

TEST_F(VerifiedFiles, ThatAreReplacedDifferInAnyByte) {
    const auto differsFrom = [&](int byte) {
        return ElementsAre(
            Replaced(L"DIFFERS", L"another content, from byte " + std::to_wstring(byte) + L" on"));
    };
    std::string content(200'000, 'x');
    test::PutFile(shipped_, content);
    test::PutFile(place_, content + 'x');
    EXPECT_THAT(Rows(true), differsFrom(200'000));
    test::PutFile(place_, content.substr(0, 65'536));
    EXPECT_THAT(Rows(true), differsFrom(65'536));
    content[150'000] = 'y';
    test::PutFile(place_, content);
    EXPECT_THAT(Rows(true), differsFrom(150'000));
    test::PutFile(place_, "");
    EXPECT_THAT(Rows(true), differsFrom(0));
}

TEST_F(VerifiedFiles, ThatAreReplacedNeedTheShippedOne) {
    test::PutFile(place_, "content");
    EXPECT_THAT(Rows(true), ElementsAre(Replaced(L"DIFFERS", L"the shipped file: absent")));
}

TEST_F(VerifiedFiles, ThatAreKeptExistWithAnyContent) {
    test::PutFile(shipped_, "content");
    EXPECT_THAT(Rows(false), ElementsAre(Kept(L"DIFFERS", L"absent")));
    test::PutFile(place_, "the user's own");
    EXPECT_THAT(Rows(false), ElementsAre(Kept(L"ok", L"there")));
}

TEST_F(VerifiedFiles, AreNotDirectories) {
    ::CreateDirectoryW(place_.c_str(), nullptr);
    EXPECT_THAT(Rows(false), ElementsAre(Kept(L"DIFFERS", L"a directory")));
    EXPECT_THAT(Rows(true), ElementsAre(Replaced(L"DIFFERS", L"a directory")));
}

TEST_F(VerifiedFiles, InAMissingDirectoryAreAbsent) {
    place_ = directory_ / L"none\\place";
    EXPECT_THAT(Rows(false), ElementsAre(Kept(L"DIFFERS", L"absent")));
}

TEST_F(VerifiedFiles, ThatMayNotBeLookedAtAreUnknown) {
    const test::ImportHook<&::GetFileAttributesW> hook(
        [](auto...) { return test::Deny(INVALID_FILE_ATTRIBUTES); });
    EXPECT_THAT(Rows(false), ElementsAre(Kept(L"UNKNOWN", Denied)));
}

TEST_F(VerifiedFiles, ThatMayNotBeOpenedAreUnknown) {
    test::PutFile(shipped_, "content");
    test::PutFile(place_, "content");
    std::wstring closed = place_;
    test::ImportHook<&::CreateFileW> hook([&](LPCWSTR path, auto... more) {
        return path == closed ? test::Deny(INVALID_HANDLE_VALUE) : hook.Forward(path, more...);
    });
    EXPECT_THAT(Rows(true), ElementsAre(Replaced(L"UNKNOWN", Denied)));
    closed = shipped_;
    EXPECT_THAT(Rows(true), ElementsAre(Replaced(L"UNKNOWN", L"the shipped file: " + Denied)));
}

TEST_F(VerifiedFiles, ThatCannotBeReadAreUnknown) {
    test::PutFile(shipped_, "content");
    test::PutFile(place_, "content");
    const test::ImportHook<&::ReadFile> hook([](auto...) { return test::Deny(FALSE); });
    EXPECT_THAT(Rows(true), ElementsAre(Replaced(L"UNKNOWN", L"the shipped file: " + Denied)));
}

TEST_F(VerifiedFiles, WhosePathCannotBeExpandedAreUnknown) {
    const test::ImportHook<&::ExpandEnvironmentStringsW> hook(
        [](LPCWSTR, LPWSTR, DWORD) { return DWORD{0}; });
    EXPECT_THAT(Rows(false), ElementsAre(Kept(L"UNKNOWN", L"its path cannot be expanded")));
}

TEST_F(VerifiedFiles, AreWhereARunPutsThemWhenItHasDeletedAStaleSetting) {
    const test::PrivateRegistry registry;
    const test::EnvironmentVariable programData(L"ProgramData", directory_.Path());
    test::PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, ConfigurationFilesDirectoryName,
                   test::TextValue(L"C:\\Stale"));
    test::PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, ImageCacheDirectoryName,
                   test::TextValue(L"C:\\Cache"));
    const std::vector<FileOperation> operations = {{false, L"a", ConfigurationFilesResolver, L""},
                                                   {false, L"b", ImageCacheResolver, L""}};
    const std::vector<std::wstring> rows = Shown(CheckFiles(operations));
    EXPECT_THAT(rows, ElementsAre(L"DIFFERS | file | " +
                                      (directory_ / L"Tarsel\\Nimbus\\ConfigurationFiles\\a") +
                                      L" | there | absent",
                                  L"DIFFERS | file | C:\\Cache\\b | there | absent"));
}

TEST_F(VerifiedFiles, AreWhereAnotherResolverPutsThem) {
    test::PutFile(place_, "content");
    const FileOperation operation = {
        false, L"name", [&](const std::wstring& name) { return name == L"name" ? place_ : L""; },
        L""};
    EXPECT_THAT(Shown(CheckFiles({&operation, 1})), ElementsAre(Kept(L"ok", L"there")));
}

}  // namespace
