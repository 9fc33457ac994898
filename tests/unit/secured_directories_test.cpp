#include "fs/secured_directories.h"

#include "fs/path_helpers.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/expected_log.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/security_calls.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <sddl.h>

#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::Calls;
using test::InheritedDacl;
using test::ProtectedDacl;

constexpr char ForTheSystem[] = "(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)";
constexpr char ForReadersToo[] = "(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)(A;OICI;GXGR;;;BU)";

constexpr wchar_t None[] = L"";

// Each row: the registry value that overrides it and its path or default; what follows the
// directory; and its access control list.
const struct {
    const wchar_t* valueName;
    const wchar_t* directory;  // in the program data
    const wchar_t* end;
    const char* entries;
} Rows[] = {
    {None, L"Tarsel\\Nimbus", L"", ForTheSystem},
    {L"ConfigFileDirectory", L"Tarsel\\Nimbus\\ConfigurationFiles", L"\\", ForTheSystem},
    {L"ImageCacheDirectory", L"Tarsel\\ImageCache", L"", ForReadersToo},
    {L"ActivityLogDirectory", L"Tarsel\\Nimbus\\ActivityLog", L"\\", ForTheSystem},
};

// The table with a registry and a program data directory of the test's own.
class TheSecuredDirectories : public testing::Test {
protected:
    // The directory of the data, a backslash, and `name`.
    [[nodiscard]] std::wstring Data(const std::wstring& name) const { return data_ / name; }

    void PutDirectory(const std::wstring& valueName, const test::RegistryValue& value) const {
        test::PutValue(registry_.Root(), test::ParametersKey, valueName, value);
    }

    // Where a row leads.
    static std::wstring Target(const SecuredDirectory& row) {
        return ExpandEnvironmentPath(row.resolvePath ? row.resolvePath(row.path) : row.path);
    }

    // A row's list, and the platform's values that it consists of.
    static std::string Entries(const SecuredDirectory& row) {
        const test::SecurityCalls calls;
        SetProtectedDacl(L"C:\\a", row.aces);
        return calls.Made().at(0);
    }

private:
    const test::PrivateRegistry registry_;
    const test::TemporaryDirectory data_;
    const test::EnvironmentVariable variable_{L"ProgramData", data_.Path()};
};

TEST_F(TheSecuredDirectories, AreTheseInThisOrder) {
    ASSERT_EQ(SecuredDirectoryTable.size(), std::size(Rows));
    for (std::size_t i = 0; i < std::size(Rows); ++i) {
        const auto& [valueName, directory, end, entries] = Rows[i];
        const SecuredDirectory& row = SecuredDirectoryTable[i];
        const bool moves = valueName != None;
        SCOPED_TRACE(test::Narrow(directory));
        EXPECT_EQ(row.path, moves ? L"" : std::wstring(L"%programdata%\\") + directory);
        EXPECT_EQ(row.resolvePath != nullptr, moves);
        EXPECT_EQ(Target(row), Data(directory) + end);
        EXPECT_TRUE(row.applyToChildren);
        EXPECT_EQ(Entries(row), ProtectedDacl(L"C:\\a", entries));
        if (moves) {
            PutDirectory(valueName, test::TextValue(L"D:\\other"));
            EXPECT_EQ(Target(row), std::wstring(L"D:\\other") + end);
            PutDirectory(valueName, test::TextValue(L"%ProgramData%\\x\\", REG_EXPAND_SZ));
            EXPECT_EQ(Target(row), Data(L"x\\") + end);
            PutDirectory(valueName, test::DwordValue(1));
            EXPECT_EQ(Target(row), Data(directory) + end);
        }
    }
}

TEST_F(TheSecuredDirectories, HoldTheValuesOfThePlatform) {
    for (const SecuredDirectory& row : SecuredDirectoryTable) {
        const std::pair<DWORD, const char*> entries[] = {{0x1000'0000, "S-1-5-32-544"},
                                                         {0x1000'0000, "S-1-5-18"},
                                                         {0xA000'0000, "S-1-5-32-545"}};
        ASSERT_LE(row.aces.size(), std::size(entries));
        for (std::size_t i = 0; i < row.aces.size(); ++i) {
            SecurityId sid = row.aces[i].sid;
            LPSTR text = nullptr;
            ASSERT_TRUE(::ConvertSidToStringSidA(&sid, &text));
            EXPECT_STREQ(text, entries[i].second);
            ::LocalFree(text);
            EXPECT_EQ(row.aces[i].accessMask, entries[i].first);
            EXPECT_EQ(row.aces[i].aceFlags, 0x3U);
        }
    }
}

// ----- SecureDirectories -----

// On a machine to which the configuration files were copied before.
class SecuringTheDirectories : public TheSecuredDirectories {
protected:
    SecuringTheDirectories() { std::filesystem::create_directories(configuration_); }

    // Secures them, and expects this log.
    void Secure(test::Course course = {}) {
        course.actions = 4;
        std::string expected;
        bool securing = false;
        for (const test::LogItem& item : ItemsOf(course)) {
            if (item.kind == test::ItemKind::Heading) {
                securing = item.text.find("SecureFilesDirectories") != std::string::npos;
            } else if (securing) {
                expected += BytesOf(item);
            }
        }
        EXPECT_EQ(test::Printed([&] { secured_ = SecureDirectories(); }), expected);
    }

    // That each directory has its list, and what is below it those that are named.
    void ExpectLists(std::map<std::wstring, std::vector<std::wstring>> below) const {
        below[product_].insert(below[product_].begin(), product_ + L"\\ConfigurationFiles");
        Calls expected;
        for (std::size_t i = 0; i < std::size(Rows); ++i) {
            const std::wstring target = Target(SecuredDirectoryTable[i]);
            expected.push_back(ProtectedDacl(target, Rows[i].entries));
            for (const std::wstring& path : below[target]) {
                expected.push_back(InheritedDacl(path));
            }
        }
        EXPECT_TRUE(secured_);
        EXPECT_EQ(calls_.Made(), expected);
    }

    const std::wstring product_ = Data(L"Tarsel\\Nimbus");
    const std::wstring configuration_ = product_ + L"\\ConfigurationFiles\\";
    const std::wstring images_ = Data(L"Tarsel\\ImageCache");

    test::SecurityCalls calls_;
    bool secured_ = false;
};

TEST_F(SecuringTheDirectories, WalksTheTable) {
    Secure();
    ExpectLists({});
}

TEST_F(SecuringTheDirectories, ResetsWhatAlreadyExists) {
    test::MakeFile(configuration_ + L"user.xml");
    std::filesystem::create_directories(images_ + L"\\below");
    test::MakeFile(images_ + L"\\below\\image");
    Secure({.there = {test::Narrow(images_)}});
    ExpectLists({{product_, {configuration_ + L"user.xml"}},
                 {configuration_, {configuration_ + L"user.xml"}},
                 {images_, {images_ + L"\\below", images_ + L"\\below\\image"}}});
}

TEST_F(SecuringTheDirectories, SecuresAndNamesTheDirectoryOfAValue) {
    const std::wstring value = L"%ProgramData%\\elsewhere";
    PutDirectory(L"ImageCacheDirectory", test::TextValue(value));
    Secure({.directories = {{L"ImageCacheDirectory", value}}});
    ExpectLists({});
    EXPECT_TRUE(std::filesystem::exists(Data(L"elsewhere")));
    EXPECT_FALSE(std::filesystem::exists(images_));
}

}  // namespace
