#include "fs/secured_directories.h"

#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/import_hook.h"
#include "support/private_registry.h"
#include "support/registry_calls.h"
#include "support/registry_contents.h"
#include "support/security_calls.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::Calls;
using test::ImportHook;
using test::InheritedDacl;
using test::ProtectedDacl;

constexpr char ForTheSystem[] = "(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)";
constexpr char ForReadersToo[] = "(A;OICI;GA;;;BA)(A;OICI;GA;;;SY)(A;OICI;GXGR;;;BU)";

// The table over a registry and a program-data directory of the test's own.
class TheSecuredDirectories : public testing::Test {
protected:
    // The directory of the data, a backslash, and `name`.
    [[nodiscard]] std::wstring Data(const std::wstring& name) const { return data_ / name; }

    void PutDirectory(const std::wstring& valueName, const test::RegistryValue& value) const {
        test::PutValue(registry_.Root(), test::ParametersKey, valueName, value);
    }

    static std::vector<std::wstring> Targets() {
        std::vector<std::wstring> targets(SecuredDirectoryTable.size());
        std::ranges::transform(SecuredDirectoryTable, targets.begin(), [](const auto& row) {
            return row.resolvePath ? row.resolvePath(row.path) : row.path;
        });
        return targets;
    }

private:
    const test::PrivateRegistry registry_;
    const test::TemporaryDirectory data_;
    const test::EnvironmentVariable variable_{L"ProgramData", data_.Path()};

protected:
    const std::vector<std::wstring> defaults_ = {
        L"%programdata%\\Tarsel\\Nimbus", Data(L"Tarsel\\Nimbus\\ConfigurationFiles\\"),
        Data(L"Tarsel\\ImageCache"), Data(L"Tarsel\\Nimbus\\ActivityLog\\")};
};

TEST_F(TheSecuredDirectories, AreFourInThisOrder) {
    EXPECT_EQ(Targets(), defaults_);
}

TEST_F(TheSecuredDirectories, ResolveAllPathsButTheFirst) {
    for (std::size_t i = 0; i < SecuredDirectoryTable.size(); ++i) {
        const SecuredDirectory& row = SecuredDirectoryTable[i];
        EXPECT_EQ(row.path, i == 0 ? L"%programdata%\\Tarsel\\Nimbus" : L"");
        EXPECT_EQ(row.resolvePath != nullptr, i != 0);
    }
}

TEST_F(TheSecuredDirectories, ApplyToTheirChildren) {
    for (const SecuredDirectory& row : SecuredDirectoryTable) {
        EXPECT_TRUE(row.applyToChildren);
    }
}

TEST_F(TheSecuredDirectories, LetReadersIntoTheImageCacheAlone) {
    for (std::size_t i = 0; i < SecuredDirectoryTable.size(); ++i) {
        const test::SecurityCalls calls;
        SetProtectedDacl(L"C:\\a", SecuredDirectoryTable[i].aces);
        EXPECT_EQ(calls.Made(),
                  Calls{ProtectedDacl(L"C:\\a", i == 2 ? ForReadersToo : ForTheSystem)});
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

TEST_F(TheSecuredDirectories, FollowTheirOwnValueInTheRegistry) {
    const struct {
        const wchar_t* name;
        std::size_t row;
        const wchar_t* end;
    } rows[] = {
        {L"ConfigFileDirectory", 1, L"\\"},
        {L"ImageCacheDirectory", 2, L""},
        {L"ActivityLogDirectory", 3, L"\\"},
    };
    for (const auto& row : rows) {
        std::vector<std::wstring> targets = defaults_;
        PutDirectory(row.name, test::TextValue(L"D:\\other"));
        targets[row.row] = std::wstring(L"D:\\other") + row.end;
        EXPECT_EQ(Targets(), targets);

        PutDirectory(row.name, test::TextValue(L"%ProgramData%\\x\\", REG_EXPAND_SZ));
        targets[row.row] = Data(L"x\\") + row.end;
        EXPECT_EQ(Targets(), targets);

        PutDirectory(row.name, test::DwordValue(1));
        EXPECT_EQ(Targets(), defaults_);
    }
}

// ----- SecureDirectories -----

// What is written for one directory if nothing fails but perhaps its creation.
std::string Log(const std::wstring& directory, bool created) {
    const std::string name = test::Narrow(directory);
    return "Creating Directory " + name +
           (created ? " \t - \tSuccess\r\n" : " \t - \tFailure\r\n") + "Verifying File/Directory " +
           name + " has NO links\t - \tSuccess\r\n" + "Verifying Children Files of Directory " +
           name + " has NO links\t - \tSuccess\r\n" + "Setting DACLs on File/Directory " + name +
           " \t - \tSuccess\r\n" + "Setting Child Inheritance DACLs on File/Directory " + name +
           " \t - \tSuccess\r\n";
}

class SecuringTheDirectories : public TheSecuredDirectories {
protected:
    [[nodiscard]] std::string Secure() {
        return test::Printed([&] { secured_ = SecureDirectories(); });
    }

    void ExpectTheFourSecuredAndNothingBelow() const {
        EXPECT_EQ(calls_.Made(), (Calls{ProtectedDacl(product_, ForTheSystem),
                                        ProtectedDacl(configuration_, ForTheSystem),
                                        ProtectedDacl(images_, ForReadersToo),
                                        ProtectedDacl(activity_, ForTheSystem)}));
    }

    const std::wstring product_ = Data(L"Tarsel\\Nimbus");
    const std::wstring configuration_ = defaults_[1];
    const std::wstring images_ = defaults_[2];
    const std::wstring activity_ = defaults_[3];

    test::SecurityCalls calls_;
    bool secured_ = false;
};

TEST_F(SecuringTheDirectories, WalksTheTable) {
    EXPECT_EQ(Secure(), Log(product_, true) + Log(configuration_, true) + Log(images_, true) +
                            Log(activity_, true));
    EXPECT_TRUE(secured_);
    ExpectTheFourSecuredAndNothingBelow();
}

TEST_F(SecuringTheDirectories, ResetsWhatIsThereAlready) {
    std::filesystem::create_directories(configuration_);
    test::MakeFile(configuration_ + L"user.xml");
    std::filesystem::create_directories(images_ + L"\\below");
    test::MakeFile(images_ + L"\\below\\image");
    EXPECT_EQ(Secure(), Log(product_, false) + Log(configuration_, false) + Log(images_, false) +
                            Log(activity_, true));
    EXPECT_TRUE(secured_);
    EXPECT_EQ(
        calls_.Made(),
        (Calls{ProtectedDacl(product_, ForTheSystem),
               InheritedDacl(product_ + L"\\ConfigurationFiles"),
               InheritedDacl(configuration_ + L"user.xml"),
               ProtectedDacl(configuration_, ForTheSystem),
               InheritedDacl(configuration_ + L"user.xml"), ProtectedDacl(images_, ForReadersToo),
               InheritedDacl(images_ + L"\\below"), InheritedDacl(images_ + L"\\below\\image"),
               ProtectedDacl(activity_, ForTheSystem)}));
}

TEST_F(SecuringTheDirectories, EndsAtALinkAboveTheFirst) {
    ImportHook<&::GetFileAttributesW> link([&](LPCWSTR path) {
        return link.Forward(path) |
               (path == Data(L"Tarsel") ? FILE_ATTRIBUTE_REPARSE_POINT : DWORD{0});
    });
    std::filesystem::create_directory(Data(L"Tarsel"));
    const std::string name = test::Narrow(product_);
    EXPECT_EQ(Secure(), "Creating Directory " + name +
                            " \t - \tSuccess\r\n"
                            "Verifying File/Directory " +
                            name + " has NO links\t - \tFailure\r\n");
    EXPECT_FALSE(secured_);
    EXPECT_EQ(calls_.Made(), Calls{});
    EXPECT_FALSE(std::filesystem::exists(configuration_));
    EXPECT_FALSE(std::filesystem::exists(images_));
    EXPECT_FALSE(std::filesystem::exists(activity_));
}

TEST_F(SecuringTheDirectories, EndsAtAFileOfSeveralNamesAmongTheConfigurationFiles) {
    std::filesystem::create_directories(configuration_);
    test::MakeFile(configuration_ + L"user.xml");
    std::filesystem::create_hard_link(configuration_ + L"user.xml", Data(L"other"));
    const std::string name = test::Narrow(configuration_);
    EXPECT_EQ(Secure(), Log(product_, false) + "Creating Directory " + name +
                            " \t - \tFailure\r\n"
                            "Verifying File/Directory " +
                            name +
                            " has NO links\t - \tSuccess\r\n"
                            "Verifying Children Files of Directory " +
                            name + " has NO links\t - \tFailure\r\n");
    EXPECT_FALSE(secured_);
    EXPECT_FALSE(std::filesystem::exists(images_));
    EXPECT_FALSE(std::filesystem::exists(activity_));
}

// Meant.
TEST_F(SecuringTheDirectories, OverlooksAFileOfSeveralNamesOneLevelDeeper) {
    std::filesystem::create_directories(configuration_ + L"below");
    test::MakeFile(configuration_ + L"below\\file");
    std::filesystem::create_hard_link(configuration_ + L"below\\file", Data(L"other"));
    static_cast<void>(Secure());
    EXPECT_TRUE(secured_);
}

TEST_F(SecuringTheDirectories, LeavesWhatIsBelowADirectoryOfAnyFurtherAttribute) {
    std::filesystem::create_directories(images_);
    test::MakeFile(images_ + L"\\image");
    ImportHook<&::GetFileAttributesW> attribute([&](LPCWSTR path) {
        return attribute.Forward(path) |
               (path == images_ ? FILE_ATTRIBUTE_NOT_CONTENT_INDEXED : DWORD{0});
    });
    EXPECT_EQ(Secure(), Log(product_, true) + Log(configuration_, true) + Log(images_, false) +
                            Log(activity_, true));
    EXPECT_TRUE(secured_);
    ExpectTheFourSecuredAndNothingBelow();
}

TEST_F(SecuringTheDirectories, SecuresAndNamesTheDirectoryOfAValue) {
    PutDirectory(L"ImageCacheDirectory", test::TextValue(L"%ProgramData%\\elsewhere"));
    const std::wstring elsewhere = Data(L"elsewhere");
    EXPECT_EQ(Secure(), Log(product_, true) + Log(configuration_, true) + Log(elsewhere, true) +
                            Log(activity_, true));
    EXPECT_EQ(calls_.Made()[2], ProtectedDacl(elsewhere, ForReadersToo));
    EXPECT_FALSE(std::filesystem::exists(images_));
}

}  // namespace
