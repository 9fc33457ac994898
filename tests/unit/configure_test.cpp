#include "config/configure.h"

#include "hw/adapter_bitmask.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/fake_adapters.h"
#include "support/fake_event_log.h"
#include "support/fake_processes.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/noted_steps.h"
#include "support/print_hook.h"
#include "support/private_registry.h"
#include "support/registry_calls.h"
#include "support/registry_contents.h"
#include "support/setting_records.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <aclapi.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::DwordValue;
using test::ImportHook;
using test::KeyExists;
using test::MakeKey;
using test::Narrow;
using test::NumberSetting;
using test::ParametersKey;
using test::Printed;
using test::PutValue;
using test::RecordedImport;
using test::Some;
using test::TextSetting;
using test::TextValue;
using test::ValueOf;

const std::wstring StaleKey = L"SOFTWARE\\Halvane\\SAP";

// ---- The walks over the settings

class SettingWalks : public testing::Test {
protected:
    static std::string DeletionOf(const std::vector<RegistrySetting>& settings) {
        return Printed([&] { DeleteSettings(settings); });
    }
    static std::string WritingOf(const std::vector<RegistrySetting>& settings) {
        return Printed([&] { WriteSettings(settings); });
    }

private:
    test::PrivateRegistry registry_;
};

TEST_F(SettingWalks, PrintNothingForAnEmptyList) {
    const RecordedImport<&::RegCreateKeyExW> create;
    EXPECT_EQ(DeletionOf({}), "");
    EXPECT_EQ(WritingOf({}), "");
    EXPECT_EQ(create.Made(), Calls{});
}

TEST_F(SettingWalks, DeleteEachSettingWhateverBecomesOfTheOthers) {
    PutValue(HKEY_LOCAL_MACHINE, L"Software\\a", L"one", TextValue(L"x"));
    PutValue(HKEY_LOCAL_MACHINE, L"Software\\a", L"two", DwordValue(1));
    PutValue(HKEY_LOCAL_MACHINE, L"Software\\a", L"left", DwordValue(1));
    PutValue(HKEY_LOCAL_MACHINE, L"Software\\whole\\below", L"x", DwordValue(1));
    EXPECT_EQ(DeletionOf({TextSetting(L"one", L"t"),
                          TextSetting(L"one", L""),  // gone by now
                          {.keyPath = L"Software\\a", .valueName = L"left", .type = REG_SZ},
                          NumberSetting(L"two", 7),
                          {.root = HKEY_LOCAL_MACHINE, .keyPath = L"Software\\whole", .type = 3}}),
              "Deleting Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\one=t \t - \tSuccess\r\n"
              "Deleting Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\one= \t - \tFailure\r\n"
              "Deleting Registry Setting \\Software\\a\\left= \t - \tFailure\r\n"
              "Deleting Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\two=7 \t - \tSuccess\r\n"
              "Deleting Registry Setting HKEY_LOCAL_MACHINE\\Software\\whole\\ \t - \tSuccess\r\n");
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"one"), std::nullopt);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"two"), std::nullopt);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"left"), DwordValue(1));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\whole"));
}

TEST_F(SettingWalks, WriteEachSettingWhateverBecomesOfTheOthers) {
    EXPECT_EQ(
        WritingOf({{.keyPath = L"Software\\none", .valueName = L"n", .type = REG_SZ, .text = L"t"},
                   TextSetting(L"text", L"%a% b"),
                   {.root = HKEY_LOCAL_MACHINE,
                    .keyPath = L"Software\\none",
                    .valueName = L"n",
                    .type = REG_EXPAND_SZ,
                    .text = L"t"},
                   NumberSetting(L"number", 0xFFFF'FFFE),
                   {.keyPath = L"Software\\none", .valueName = L"n", .type = REG_DWORD},
                   TextSetting(L"empty", L"")}),
        "Writing Registry Setting \\Software\\none\\n=t \t - \tFailure\r\n"
        "Writing Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\text=%a% b \t - \tSuccess\r\n"
        "Writing Registry Setting HKEY_LOCAL_MACHINE\\Software\\none\\n \t - \tFailure\r\n"
        "Writing Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\number=4294967294 \t - "
        "\tSuccess\r\n"
        "Writing Registry Setting \\Software\\none\\n=0 \t - \tFailure\r\n"
        "Writing Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\empty= \t - \tSuccess\r\n");
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"text"), TextValue(L"%a% b"));
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"number"), DwordValue(0xFFFF'FFFE));
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"empty"), TextValue(L""));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\none"));
}

TEST_F(SettingWalks, AskNothingOfThePlatformWithoutARoot) {
    const RecordedImport<&::RegCreateKeyExW> create;
    for (const std::uint32_t type : {1U, 4U, 3U}) {
        const RegistrySetting setting = {.keyPath = L"a", .valueName = L"n", .type = type};
        EXPECT_THAT(WritingOf({setting}), testing::EndsWith(" \t - \tFailure\r\n"));
        EXPECT_THAT(DeletionOf({setting}), testing::EndsWith(" \t - \tFailure\r\n"));
    }
    EXPECT_EQ(create.Made(), Calls{});
}

TEST_F(SettingWalks, WriteNothingOfAnyOtherType) {
    const RecordedImport<&::RegCreateKeyExW> create;
    for (const std::uint32_t type : {0U, 2U, 3U, 5U, 7U, 11U, 0x101U, 0xFFFF'FFFFU}) {
        RegistrySetting setting = TextSetting(L"n", L"t");
        setting.type = type;
        EXPECT_EQ(WritingOf({setting}),
                  "Writing Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\n \t - \tFailure\r\n");
    }
    EXPECT_EQ(create.Made(), Calls{});
}

TEST_F(SettingWalks, KeepToTheViewOfTheSetting) {
    for (const bool view32 : {false, true}) {
        RegistrySetting text = TextSetting(L"t", L"x");
        RegistrySetting number = NumberSetting(L"n", 5);
        text.view32 = number.view32 = view32;
        const std::string key = std::string(view32 ? "32Bit Registry Hive - " : "") +
                                "HKEY_LOCAL_MACHINE\\Software\\a\\";
        const RecordedImport<&::RegCreateKeyExW> create;
        EXPECT_EQ(WritingOf({text, number}),
                  "Writing Registry Setting " + key + "t=x \t - \tSuccess\r\n" +
                      "Writing Registry Setting " + key + "n=5 \t - \tSuccess\r\n");
        EXPECT_EQ(DeletionOf({text, number}),
                  "Deleting Registry Setting " + key + "t=x \t - \tSuccess\r\n" +
                      "Deleting Registry Setting " + key + "n=5 \t - \tSuccess\r\n");
        EXPECT_EQ(create.Made(), Calls(4, Call(HKEY_LOCAL_MACHINE, L"Software\\a", 0, nullptr, 0,
                                               view32 ? 0x20206 : 0x20006, nullptr, Some, Some)));
    }
}

TEST_F(SettingWalks, FailWithThePlatform) {
    const ImportHook<&::RegSetValueExW> set([](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*,
                                               DWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    EXPECT_THAT(WritingOf({TextSetting(L"t", L"x")}), testing::EndsWith("=x \t - \tFailure\r\n"));
    EXPECT_THAT(WritingOf({NumberSetting(L"n", 5)}), testing::EndsWith("=5 \t - \tFailure\r\n"));
}

TEST_F(SettingWalks, PrintTheVerdictAfterTheDeed) {
    std::vector<std::string> steps;
    Printed([&] {
        const test::NotedPrints prints(steps);
        const test::NotedCalls<&::RegSetValueExW> set(steps, "set");
        const test::NotedCalls<&::RegDeleteValueW> remove(steps, "delete");
        WriteSettings(std::vector{NumberSetting(L"n", 5)});
        DeleteSettings(std::vector{NumberSetting(L"n", 5)});
    });
    const std::string setting = " Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\n=5 \t - \t";
    EXPECT_THAT(steps, testing::ElementsAre("Writing" + setting, "set", "Success\r\n",
                                            "Deleting" + setting, "delete", "Success\r\n"));
}

// ---- The whole action

// The configuring of a machine of its own, on which every access list can be set.
class ConfigureTest : public testing::Test {
protected:
    ~ConfigureTest() override { g_hardwareBitmask = 0; }

    // What is printed.
    std::string Log() {
        return Printed([&] { result = Configure(); });
    }

    // The log up to the securing of directories, with the verdicts on the two settings to delete.
    static std::string Beginning(const std::string& settings, const std::string& files) {
        return "\r\n-------------------------------------------------------\r\n"
               "Setting Up Configuration Settings and Environment....\r\n"
               "-------------------------------------------------------\r\n"
               "Delete Registry Settings.....\r\n" +
               settings + "\r\nCopyFiles.....\r\n" + files + "\r\nSecureFilesDirectories.....\r\n";
    }

    static std::string Settings(const char* value, const char* key) {
        return "Deleting Registry Setting HKEY_LOCAL_MACHINE\\" + Narrow(ParametersKey) +
               "\\ConfigFileDirectory= \t - \t" + value +
               "\r\nDeleting Registry Setting HKEY_LOCAL_MACHINE\\SOFTWARE\\Halvane\\SAP\\= \t - "
               "\t" +
               key + "\r\n";
    }

    // The steps of one file, without its deletion if there is no verdict on it.
    [[nodiscard]] std::string File(const std::wstring& name, const char* deletion,
                                   const char* creation, const char* copying) const {
        const std::wstring placed = Data(L"Tarsel\\Nimbus\\ConfigurationFiles\\" + name);
        return (deletion == nullptr
                    ? ""
                    : "Deleting File " + Narrow(placed) + " \t - \t" + deletion + "\r\n") +
               "Creating Directory " + Narrow(Data(L"Tarsel\\Nimbus\\ConfigurationFiles\\")) +
               " \t - \t" + creation + "\r\nCopying File " + Narrow(Shipped(name)) + " -> " +
               Narrow(placed) + "     overwriting =" + (deletion == nullptr ? "false" : "true") +
               "\t - \t" + copying + "\r\n";
    }

    // The steps of one directory's securing up to the verdict on its access list.
    [[nodiscard]] static std::string Securing(const std::wstring& path, const char* creation,
                                              const char* securing) {
        const std::string shown = Narrow(path);
        return "Creating Directory " + shown + " \t - \t" + creation +
               "\r\nVerifying File/Directory " + shown +
               " has NO links\t - \tSuccess\r\nVerifying Children Files of Directory " + shown +
               " has NO links\t - \tSuccess\r\nSetting DACLs on File/Directory " + shown +
               " \t - \t" + securing + "\r\n";
    }

    [[nodiscard]] static std::string Secured(const std::wstring& path, const char* creation) {
        return Securing(path, creation, "Success") +
               "Setting Child Inheritance DACLs on File/Directory " + Narrow(path) +
               " \t - \tSuccess\r\n";
    }

    // The securing of the product's directories, of which two are new or none.
    [[nodiscard]] std::string AllSecured(const char* twoCreated) const {
        return Secured(Data(L"Tarsel\\Nimbus"), "Failure") +
               Secured(Data(L"Tarsel\\Nimbus\\ConfigurationFiles\\"), "Failure") +
               Secured(Data(L"Tarsel\\ImageCache"), twoCreated) +
               Secured(Data(L"Tarsel\\Nimbus\\ActivityLog\\"), twoCreated);
    }

    [[nodiscard]] std::wstring Data(const std::wstring& path) const {
        return directory_ / (L"data\\" + path);
    }
    [[nodiscard]] std::wstring Shipped(const std::wstring& name) const {
        return directory_ / (L"system\\system32\\drivers\\Tarsel\\ZEFIR\\" + name);
    }
    void ShipFiles() const {
        for (const wchar_t* name : {L"user.xml", L"oem.xml", L"vx.stg"}) {
            test::PutFile(Shipped(name), "shipped");
        }
    }

    static void ExpectFirstRunCleared() {
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun"), DwordValue(0));
    }

    // The log from there on, with the lines of the adapters that are found and of the features.
    static std::string EndingWith(const std::string& found, const std::string& features) {
        return "\r\nWrite Registry Settings.....\r\n"
               "Computing Tarsel HW Bitmask\r\n" +
               found + "Enabling Features by Tarsel HW Bitmask\r\n" + features +
               "\r\nScheduling Tasks.....\r\n"
               "   Creating Task Name [VxIdle Task] for Process "
               "[C:\\Own Directory\\VxIdleTask.exe]....\n"
               "     ====> SUCCESS\n"
               "   Deleting Task Name [Tarsel Lumetra Startup Task]....\n"
               "     ====> SUCCESS\n";
    }

    static inline const std::string Ending = EndingWith("", "");
    static inline const std::string FeatureLine = "Writing Registry Setting HKEY_LOCAL_MACHINE\\" +
                                                  Narrow(ParametersKey) +
                                                  "\\MultiInterface_Enabled=1\r\n";

    static std::optional<test::RegistryValue> Feature() {
        return ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"MultiInterface_Enabled");
    }
    static std::optional<test::RegistryValue> Bitmask() {
        return ValueOf(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tarsel\\Nimbus", L"Tarsel_HWConfig");
    }

    bool result = false;
    DWORD securingError = ERROR_SUCCESS;
    test::FakeProcesses processes;
    test::FakeAdapters machine;
    test::FakeEventLog events;

private:
    test::PrivateRegistry registry_;
    test::TemporaryDirectory directory_;
    test::EnvironmentVariable programData_{L"ProgramData", directory_ / L"data"};
    test::EnvironmentVariable systemRoot_{L"SystemRoot", directory_ / L"system"};
    ImportHook<&::SetNamedSecurityInfoW> secure_{[this](LPWSTR, SE_OBJECT_TYPE,
                                                        SECURITY_INFORMATION, PSID, PSID, PACL,
                                                        PACL) { return securingError; }};
};

TEST_F(ConfigureTest, PreparesANewMachine) {
    ShipFiles();
    EXPECT_EQ(Log(), Beginning(Settings("Failure", "Success"),
                               File(L"user.xml", nullptr, "Success", "Success") +
                                   File(L"oem.xml", "Failure", "Failure", "Success") +
                                   File(L"vx.stg", "Failure", "Failure", "Success")) +
                         AllSecured("Success") + Ending);
    EXPECT_TRUE(result);
    ExpectFirstRunCleared();
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, StaleKey));
    EXPECT_THAT(events.calls.Lines(), testing::IsEmpty());
}

TEST_F(ConfigureTest, PreparesAMachineAgain) {
    ShipFiles();
    Log();
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun", DwordValue(1));
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"ConfigFileDirectory", TextValue(L"C:\\other"));
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"Other", TextValue(L"as it was"));
    PutValue(HKEY_LOCAL_MACHINE, StaleKey + L"\\below\\it", L"x", DwordValue(1));
    MakeKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\Other");
    const std::wstring userFile = Data(L"Tarsel\\Nimbus\\ConfigurationFiles\\user.xml");
    test::PutFile(userFile, "the user's own");
    EXPECT_EQ(Log(), Beginning(Settings("Success", "Success"),
                               File(L"user.xml", nullptr, "Failure", "Failure") +
                                   File(L"oem.xml", "Success", "Failure", "Success") +
                                   File(L"vx.stg", "Success", "Failure", "Success")) +
                         AllSecured("Failure") + Ending);
    EXPECT_TRUE(result);
    ExpectFirstRunCleared();
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"ConfigFileDirectory"), std::nullopt);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"Other"), TextValue(L"as it was"));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, StaleKey));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\Other"));
    EXPECT_THAT(test::FileText(userFile), testing::Optional(std::string("the user's own")));
}

TEST_F(ConfigureTest, SucceedsThoughAllButTheSecuringFails) {
    const ImportHook<&::RegCreateKeyExW> create(
        [](HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY,
           LPDWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    const ImportHook<&::CreateDirectoryW> createDirectory(
        [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL { return FALSE; });
    EXPECT_EQ(Log(), Beginning(Settings("Failure", "Failure"),
                               File(L"user.xml", nullptr, "Failure", "Failure") +
                                   File(L"oem.xml", "Failure", "Failure", "Failure") +
                                   File(L"vx.stg", "Failure", "Failure", "Failure")) +
                         AllSecured("Failure") + Ending);
    EXPECT_TRUE(result);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun"), std::nullopt);
}

TEST_F(ConfigureTest, EnablesTheFeaturesOfTheAdaptersThatArePresent) {
    machine.adapters = {{L"Tarsel QZ311 #2"}, {L"other"}, {L"Tarsel QZ311"}};
    EXPECT_THAT(Log(), testing::EndsWith(
                           EndingWith("Found Adapter Tarsel QZ311 #2 to configure  Bitmask 0x2\r\n"
                                      "Found Adapter Tarsel QZ311 to configure  Bitmask 0x2\r\n",
                                      FeatureLine)));
    EXPECT_EQ(g_hardwareBitmask, 2U);
    EXPECT_EQ(Bitmask(), DwordValue(2));
    EXPECT_EQ(Feature(), DwordValue(1));
}

TEST_F(ConfigureTest, LeavesTheFeaturesOfAdaptersThatAreNotPresent) {
    machine.adapters = {{L"other"}};
    g_hardwareBitmask = 0xFF;
    EXPECT_THAT(Log(), testing::EndsWith(Ending));
    EXPECT_EQ(g_hardwareBitmask, 0U);
    EXPECT_EQ(Bitmask(), DwordValue(0));
    EXPECT_EQ(Feature(), std::nullopt);
}

TEST_F(ConfigureTest, EnablesTheFeaturesThatTheSettingAsksFor) {
    machine.adapters = {{L"Tarsel QZ311"}};
    for (const std::uint32_t bitmask : {0x12U, 0x10U, 0U}) {
        PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"Tarsel_HWConfigDefault", DwordValue(bitmask));
        EXPECT_THAT(Log(), testing::EndsWith(EndingWith("", bitmask == 0x12 ? FeatureLine : "")));
        EXPECT_EQ(g_hardwareBitmask, bitmask);
        EXPECT_EQ(Bitmask(), DwordValue(bitmask));
    }
}

TEST_F(ConfigureTest, SetsTheBitmaskBetweenItsTwoLines) {
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"Tarsel_HWConfigDefault", DwordValue(2));
    std::vector<std::uint32_t> bitmasks;
    Printed([&] {
        const test::PrintHook prints([&](const std::string& text) {
            if (text.find("Tarsel HW Bitmask") != std::string::npos) {
                bitmasks.push_back(g_hardwareBitmask);
            }
        });
        Configure();
    });
    EXPECT_THAT(bitmasks, testing::ElementsAre(0, 2));
}

TEST_F(ConfigureTest, AsksForNoAdaptersIfADirectoryCannotBeSecured) {
    securingError = ERROR_ACCESS_DENIED;
    machine.adapters = {{L"Tarsel QZ311"}};
    EXPECT_THAT(Log(), testing::Not(testing::HasSubstr("HW Bitmask")));
    EXPECT_THAT(machine.calls.Lines(), testing::IsEmpty());
    EXPECT_EQ(g_hardwareBitmask, 0U);
    EXPECT_EQ(Bitmask(), std::nullopt);
    EXPECT_EQ(Feature(), std::nullopt);
}

TEST_F(ConfigureTest, SucceedsThoughTheFeaturesCannotBeEnabled) {
    machine.adapters = {{L"Tarsel QZ311"}};
    machine.listResult = ERROR_INVALID_PARAMETER;
    EXPECT_THAT(Log(),
                testing::EndsWith(EndingWith("GetAdaptersInfo failed with error: 87\n", "")));
    EXPECT_TRUE(result);
    machine.listResult.reset();
    const ImportHook<&::RegSetValueExW> set([](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*,
                                               DWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    EXPECT_THAT(Log(), testing::EndsWith(EndingWith(
                           "Found Adapter Tarsel QZ311 to configure  Bitmask 0x2\r\n", "")));
    EXPECT_TRUE(result);
}

TEST_F(ConfigureTest, EndsWithTheResponseIfADirectoryCannotBeSecured) {
    ShipFiles();
    securingError = ERROR_ACCESS_DENIED;
    processes.ownPath = Data(L"Finaset.exe");
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun", DwordValue(1));
    EXPECT_EQ(Log(), Beginning(Settings("Failure", "Success"),
                               File(L"user.xml", nullptr, "Success", "Success") +
                                   File(L"oem.xml", "Failure", "Failure", "Success") +
                                   File(L"vx.stg", "Failure", "Failure", "Success")) +
                         Securing(Data(L"Tarsel\\Nimbus"), "Failure", "Failure") +
                         "\r\n--------------------------\r\n"
                         "Uninstalling Product.....\r\n"
                         "--------------------------\r\n"
                         "First Run - " +
                         Narrow(Data(L"Unfinaset.exe")) +
                         "  DOES NOT EXIST\r\n"
                         "Security Vulnerability Securing Directories due to Failure Setting ACLs "
                         "or Links Detected - Uninstalling\r\n");
    EXPECT_FALSE(result);
    ExpectFirstRunCleared();
    EXPECT_THAT(
        events.calls.Lines(),
        testing::ElementsAre(
            "RegisterEventSourceW(null, Tarsel Nimbus CInstall)",
            "ReportEventW(source, 0, 1, 16, null, 1, 0, Security Vulnerability Securing "
            "Directories due to Failure Setting ACLs or Links Detected - Uninstalling, null)",
            "DeregisterEventSource(source)"));
}

TEST_F(ConfigureTest, ClearsTheMarkLastOnBothWays) {
    for (const DWORD error : {DWORD{ERROR_SUCCESS}, DWORD{ERROR_ACCESS_DENIED}}) {
        securingError = error;
        std::string printed;
        std::string printedBefore;
        Calls sets;
        const RecordedImport<&::RegCreateKeyExW> create;
        Printed([&] {
            const test::PrintHook prints([&](const std::string& text) { printed += text; });
            ImportHook<&::RegSetValueExW> set([&](HKEY key, LPCWSTR name, DWORD reserved,
                                                  DWORD type, const BYTE* data, DWORD size) {
                printedBefore = printed;
                sets.push_back(Call(name, reserved, type, data, size));
                return set.Forward(key, name, reserved, type, data, size);
            });
            Configure();
        });
        EXPECT_EQ(printedBefore, printed);
        EXPECT_EQ(sets.back(), Call(L"FirstRun", 0, 4, Some, 4));
        EXPECT_EQ(sets.size(), error == ERROR_SUCCESS ? 2U : 1U);  // the hardware bitmask before
        EXPECT_EQ(create.Made().back(), Call(HKEY_LOCAL_MACHINE, ParametersKey, 0, nullptr, 0,
                                             0x20006, nullptr, Some, Some));
        EXPECT_EQ(create.Made().size(), sets.size() + 2);  // the two settings to delete before
        ExpectFirstRunCleared();
    }
}

TEST_F(ConfigureTest, ReplacesAMarkOfAnotherType) {
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun", TextValue(L"yes"));
    Log();
    ExpectFirstRunCleared();
}

TEST_F(ConfigureTest, SaysNothingIfTheMarkCannotBeCleared) {
    Log();
    const std::string again = Log();
    const ImportHook<&::RegSetValueExW> set([](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*,
                                               DWORD) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(Log(), again);
    EXPECT_TRUE(result);
    securingError = ERROR_ACCESS_DENIED;
    Log();
    EXPECT_FALSE(result);
}

TEST_F(ConfigureTest, LeavesTheSameRegistryEachTime) {
    ShipFiles();
    for (int run = 0; run < 3; ++run) {
        Log();
        ExpectFirstRunCleared();
        EXPECT_EQ(test::SubKeyCount(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane"), 0U);
        EXPECT_EQ(test::SubKeyCount(HKEY_LOCAL_MACHINE, ParametersKey), 0U);
    }
}

// The first setting to delete makes the key too, unless that fails.
TEST_F(ConfigureTest, MakesTheKeyOfTheMarkIfItIsMissing) {
    for (const DWORD error : {DWORD{ERROR_SUCCESS}, DWORD{ERROR_ACCESS_DENIED}}) {
        securingError = error;
        bool refused = false;
        {
            ImportHook<&::RegCreateKeyExW> create([&](auto... arguments) -> LSTATUS {
                if (!refused) {
                    refused = true;
                    return ERROR_ACCESS_DENIED;
                }
                return create.Forward(arguments...);
            });
            EXPECT_THAT(Log(), testing::HasSubstr(Settings("Failure", "Success")));
        }
        EXPECT_TRUE(refused);
        ExpectFirstRunCleared();
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SYSTEM");
    }
}

}  // namespace
