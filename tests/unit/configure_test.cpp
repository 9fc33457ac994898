#include "config/configure.h"

#include "config/settings_tables.h"
#include "fs/file_table.h"
#include "fs/path_helpers.h"
#include "hw/adapter_bitmask.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/expected_log.h"
#include "support/fake_adapters.h"
#include "support/fake_event_log.h"
#include "support/fake_processes.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/noted_steps.h"
#include "support/print_hook.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/setting_records.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <aclapi.h>

#include <algorithm>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::Course;
using test::DwordValue;
using test::ImportHook;
using test::KeyExists;
using test::LogOf;
using test::MakeKey;
using test::NumberSetting;
using test::ParametersKey;
using test::Printed;
using test::PutValue;
using test::RecordedImport;
using test::Some;
using test::TextSetting;
using test::TextValue;
using test::ValueOf;
using enum test::Verdict;

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

TEST_F(SettingWalks, DeleteEachSettingEvenIfOthersFail) {
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

TEST_F(SettingWalks, WriteEachSettingEvenIfOthersFail) {
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

TEST_F(SettingWalks, CallNothingWithoutARoot) {
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
    const ImportHook<&::RegSetValueExW> set([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_THAT(WritingOf({TextSetting(L"t", L"x")}), testing::EndsWith("=x \t - \tFailure\r\n"));
    EXPECT_THAT(WritingOf({NumberSetting(L"n", 5)}), testing::EndsWith("=5 \t - \tFailure\r\n"));
}

TEST_F(SettingWalks, PrintTheVerdictAfterTheAction) {
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

// Configures a machine on which every access control list can be set.
class ConfigureTest : public testing::Test {
protected:
    ~ConfigureTest() override { g_hardwareBitmask = 0; }

    // What is printed.
    std::string Log() {
        return Printed([&] { result = Configure(); });
    }

    // Configures the machine, and expects this of its log.
    void ExpectLog(Course course) {
        course.actions = 4;
        course.startupTask = true;  // without COM it is not logged
        course.programDirectory = "C:\\Own Directory";
        for (const test::FakeAdapter& adapter : machine.adapters) {
            course.adapters.push_back(adapter.description);
        }
        EXPECT_EQ(test::LogBegin + Log() + test::LogEnd, LogOf(course));
    }

    static void ShipFiles() {
        for (const FileOperation& file : FileTable) {
            test::PutFile(ExpandEnvironmentPath(file.sourcePath), "shipped");
        }
    }

    static void ExpectFirstRunCleared() {
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun"), DwordValue(0));
    }

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
    ImportHook<&::SetNamedSecurityInfoW> secure_{[this](auto...) { return securingError; }};
};

// The headings in their order, as they are written.
TEST_F(ConfigureTest, PrintsItsHeadingsInOrder) {
    std::string headings;
    Printed([&] {
        const test::PrintHook prints([&](const std::string& text) {
            const bool heading = text.ends_with("....\r\n") || text.ends_with("Bitmask\r\n") ||
                                 text.ends_with("-\r\n");
            headings += heading ? text : "";
        });
        Configure();
    });
    EXPECT_EQ(headings,
              "\r\n-------------------------------------------------------\r\n"
              "Setting Up Configuration Settings and Environment....\r\n"
              "-------------------------------------------------------\r\n"
              "Delete Registry Settings.....\r\n"
              "\r\nCopyFiles.....\r\n"
              "\r\nSecureFilesDirectories.....\r\n"
              "\r\nWrite Registry Settings.....\r\n"
              "Computing Tarsel HW Bitmask\r\n"
              "Enabling Features by Tarsel HW Bitmask\r\n"
              "\r\nScheduling Tasks.....\r\n");
}

TEST_F(ConfigureTest, PreparesANewMachine) {
    ShipFiles();
    ExpectLog({.staleSettings = false});
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
    const std::string userFile =
        test::DestinationOf(*std::ranges::find(FileTable, false, &FileOperation::overwrite));
    test::PutFile(userFile, "the user's own");
    ExpectLog({.configured = true});
    EXPECT_TRUE(result);
    ExpectFirstRunCleared();
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"ConfigFileDirectory"), std::nullopt);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"Other"), TextValue(L"as it was"));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, StaleKey));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\Other"));
    EXPECT_THAT(test::FileText(userFile), testing::Optional(std::string("the user's own")));
}

TEST_F(ConfigureTest, SucceedsEvenIfAllButTheSecuringFails) {
    const ImportHook<&::RegCreateKeyExW> create([](auto...) { return ERROR_ACCESS_DENIED; });
    const ImportHook<&::CreateDirectoryW> createDirectory([](auto...) { return FALSE; });
    ExpectLog({.verdicts = {{"Registry Setting ", Bad}, {"Creating Directory ", Bad}},
               .shipped = std::set<std::wstring>()});
    EXPECT_TRUE(result);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun"), std::nullopt);
}

TEST_F(ConfigureTest, EnablesTheFeaturesOfTheAdaptersThatArePresent) {
    machine.adapters = {{L"Tarsel QZ311 #2"}, {L"other"}, {L"Tarsel QZ311"}};
    ShipFiles();
    ExpectLog({.staleSettings = false});
    EXPECT_EQ(g_hardwareBitmask, 2U);
    EXPECT_EQ(Bitmask(), DwordValue(2));
    EXPECT_EQ(Feature(), DwordValue(1));
}

TEST_F(ConfigureTest, LeavesTheFeaturesOfAdaptersThatAreNotPresent) {
    machine.adapters = {{L"other"}};
    g_hardwareBitmask = 0xFF;
    ShipFiles();
    ExpectLog({.staleSettings = false});
    EXPECT_EQ(g_hardwareBitmask, 0U);
    EXPECT_EQ(Bitmask(), DwordValue(0));
    EXPECT_EQ(Feature(), std::nullopt);
}

TEST_F(ConfigureTest, EnablesTheFeaturesThatTheSettingAsksFor) {
    machine.adapters = {{L"Tarsel QZ311"}};
    ShipFiles();
    Log();
    for (const std::uint32_t bitmask : {0x12U, 0x10U, 0U}) {
        PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"Tarsel_HWConfigDefault", DwordValue(bitmask));
        ExpectLog({.staleSettings = false, .configured = true, .bitmask = bitmask});
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

TEST_F(ConfigureTest, SucceedsEvenIfTheFeaturesCannotBeEnabled) {
    ShipFiles();
    machine.adapters = {{L"other"}};
    machine.listResult = ERROR_INVALID_PARAMETER;
    ExpectLog({.staleSettings = false, .adapterError = "87"});
    EXPECT_TRUE(result);
    machine.listResult.reset();
    machine.adapters = {{L"Tarsel QZ311"}};
    const ImportHook<&::RegSetValueExW> set([](auto...) { return ERROR_ACCESS_DENIED; });
    ExpectLog({.verdicts = {{"Writing Registry Setting ", Bad}},
               .staleSettings = false,
               .configured = true});
    EXPECT_TRUE(result);
}

TEST_F(ConfigureTest, EndsWithTheResponseIfADirectoryCannotBeSecured) {
    ShipFiles();
    securingError = ERROR_ACCESS_DENIED;
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun", DwordValue(1));
    ExpectLog(
        {.verdicts = {{"Setting DACLs ", Bad}, {"Unfinaset.exe", Absent}}, .staleSettings = false});
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

TEST_F(ConfigureTest, ClearsTheMarkerLastInBothCases) {
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
        EXPECT_EQ(create.Made().size(), sets.size() + DeleteList.size());  // before it
        ExpectFirstRunCleared();
    }
}

TEST_F(ConfigureTest, ReplacesAMarkerOfAnotherType) {
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun", TextValue(L"yes"));
    Log();
    ExpectFirstRunCleared();
}

TEST_F(ConfigureTest, LogsNothingIfTheMarkerCannotBeCleared) {
    Log();
    const std::string again = Log();
    const ImportHook<&::RegSetValueExW> set([](auto...) { return ERROR_ACCESS_DENIED; });
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

// The first setting to delete creates the key too, unless that fails.
TEST_F(ConfigureTest, CreatesTheKeyOfTheMarkerIfItIsMissing) {
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
            Log();
        }
        EXPECT_TRUE(refused);
        ExpectFirstRunCleared();
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SYSTEM");
    }
}

}  // namespace
