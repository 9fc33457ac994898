#include "hw/features.h"

#include "hw/adapter_bitmask.h"
#include "hw/feature_table.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/import_hook.h"
#include "support/noted_steps.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/setting_records.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace {

using test::Call;
using test::Calls;
using test::DwordValue;
using test::Fields;
using test::ImportHook;
using test::NumberSetting;
using test::ParametersKey;
using test::Printed;
using test::PutValue;
using test::RecordedImport;
using test::Some;
using test::TextSetting;
using test::TextValue;
using test::ValueOf;

TEST(FeatureRuleTable, HoldsTheFeatures) {
    const auto none = std::tuple(static_cast<HKEY>(nullptr), std::wstring(), std::wstring(), false,
                                 4U, 0U, std::wstring());
    const auto feature = [](const std::wstring& name, std::uint32_t number) {
        return std::tuple(HKEY_LOCAL_MACHINE, std::wstring(ParametersKey), name, false, 4U, number,
                          std::wstring());
    };
    const struct {
        std::uint32_t mask;
        decltype(none) whenClear;
        decltype(none) whenSet;
    } rows[] = {{0x00000002, none, feature(L"MultiInterface_Enabled", 1)}};
    ASSERT_EQ(FeatureRuleTable.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(FeatureRuleTable[i].mask, rows[i].mask);
        EXPECT_EQ(Fields(FeatureRuleTable[i].whenClear), rows[i].whenClear);
        EXPECT_EQ(Fields(FeatureRuleTable[i].whenSet), rows[i].whenSet);
    }
}

// A row of the tests' own.
constexpr wchar_t Feature[] = L"MultiInterface_Enabled";
constexpr char FeatureLine[] =
    "Writing Registry Setting HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Tarsel "
    "Nimbus Network Service\\Parameters\\MultiInterface_Enabled=1\r\n";
const std::vector<FeatureRule> OneFeature = {{{},
                                              {.root = HKEY_LOCAL_MACHINE,
                                               .keyPath = ParametersKey,
                                               .valueName = Feature,
                                               .type = REG_DWORD,
                                               .number = 1},
                                              0x00000002}};

// The features of a machine with a bitmask and a private registry.
class Features : public testing::Test {
protected:
    ~Features() override { g_hardwareBitmask = 0; }

    // What is printed.
    static std::string Enabled(std::uint32_t bitmask,
                               const std::vector<FeatureRule>& rules = OneFeature) {
        g_hardwareBitmask = bitmask;
        return Printed([&] { EnableFeaturesByBitmask(rules); });
    }

private:
    test::PrivateRegistry registry_;
};

TEST_F(Features, AreNotTouchedWithoutTheHardware) {
    const RecordedImport<&::RegCreateKeyExW> create;
    for (const std::uint32_t bitmask : {0U, 1U, 4U, 0x02000000U, 0xFFFF'FFFDU}) {
        EXPECT_EQ(Enabled(bitmask), "") << bitmask;
    }
    EXPECT_EQ(create.Made(), Calls{});
}

TEST_F(Features, KeepWithoutTheHardwareWhatTheyWere) {
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, Feature, DwordValue(7));
    EXPECT_EQ(Enabled(0), "");
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, Feature), DwordValue(7));
}

TEST_F(Features, AreEnabledByTheirBitWhateverTheOthersAre) {
    for (const std::uint32_t bitmask : {2U, 3U, 0x12U, 0xFFFF'FFFFU}) {
        PutValue(HKEY_LOCAL_MACHINE, ParametersKey, Feature, TextValue(L"as it was"));
        EXPECT_EQ(Enabled(bitmask), FeatureLine) << bitmask;
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, Feature), DwordValue(1));
    }
}

TEST_F(Features, AreWrittenInTheDefaultView) {
    const RecordedImport<&::RegCreateKeyExW> create;
    const RecordedImport<&::RegSetValueExW> set;
    Enabled(2);
    EXPECT_EQ(create.Made(), Calls{Call(HKEY_LOCAL_MACHINE, ParametersKey, 0, nullptr, 0, 0x20006,
                                        nullptr, Some, Some)});
    ASSERT_EQ(set.Made().size(), 1U);
    EXPECT_THAT(set.Made()[0], testing::EndsWith(Call(Feature, 0, 4, Some, 4)));
}

TEST_F(Features, IgnoreSilentlyWhatIsRefused) {
    const std::vector<FeatureRule> rules = {{{}, NumberSetting(L"one", 1), 1},
                                            {{}, TextSetting(L"two", L"t"), 1},
                                            {{}, NumberSetting(L"three", 3), 1}};
    ImportHook<&::RegSetValueExW> set([&](HKEY key, LPCWSTR name, auto... more) {
        return std::wstring(name) == L"three" ? set.Forward(key, name, more...)
                                              : ERROR_ACCESS_DENIED;
    });
    EXPECT_EQ(Enabled(1, rules),
              "Writing Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\three=3\r\n");
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"one"), std::nullopt);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"two"), std::nullopt);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"three"), DwordValue(3));
}

TEST_F(Features, IgnoreSilentlyThatTheKeyIsRefused) {
    const ImportHook<&::RegCreateKeyExW> create([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(Enabled(2), "");
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ParametersKey, Feature), std::nullopt);
}

TEST_F(Features, AreThoseOfTheRowsInTheirOrder) {
    const std::vector<FeatureRule> rules = {
        {TextSetting(L"clear", L"1"), NumberSetting(L"set", 1), 0x10},
        {TextSetting(L"clear", L"2"), NumberSetting(L"set", 2), 0x20},
        {TextSetting(L"clear", L"3"), NumberSetting(L"set", 3), 0x30},
        {TextSetting(L"clear", L"4"), NumberSetting(L"set", 4), 0},
        {NumberSetting(L"clear", 5), TextSetting(L"set", L"5"), 0x8000'0000},
    };
    const std::string line = "Writing Registry Setting HKEY_LOCAL_MACHINE\\Software\\a\\";
    EXPECT_EQ(Enabled(0x8000'0010, rules), line + "set=1\r\n" + line + "clear=2\r\n" + line +
                                               "set=3\r\n" + line + "clear=4\r\n" + line +
                                               "set=5\r\n");
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"clear"), TextValue(L"4"));
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, L"Software\\a", L"set"), TextValue(L"5"));
}

TEST_F(Features, AreThoseOfTheProductsTableByThemselves) {
    for (const std::uint32_t bitmask : {0U, 2U, 0xFFFF'FFFFU}) {
        const std::string printed = Enabled(bitmask, FeatureRuleTable);
        EXPECT_EQ(Printed([] { EnableFeaturesByBitmask(); }), printed);
    }
}

TEST_F(Features, AreNoneForAnEmptyTable) {
    EXPECT_EQ(Enabled(0xFFFF'FFFF, {}), "");
}

TEST_F(Features, AreNothingWithoutARootOrOfAnotherType) {
    const RecordedImport<&::RegCreateKeyExW> create;
    for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 5U, 7U, 11U, 0x101U, 0xFFFF'FFFFU}) {
        RegistrySetting none = TextSetting(L"n", L"t");
        none.root = nullptr;
        none.type = type;
        EXPECT_EQ(Enabled(1, {{none, none, 1}}), "");
        EXPECT_EQ(Enabled(1, {{none, none, 2}}), "");
        if (type != REG_SZ && type != REG_DWORD) {
            RegistrySetting other = TextSetting(L"n", L"t");
            other.type = type;
            EXPECT_EQ(Enabled(1, {{other, other, 1}}), "");
            EXPECT_EQ(Enabled(1, {{other, other, 2}}), "");
        }
    }
    EXPECT_EQ(create.Made(), Calls{});
}

TEST_F(Features, KeepToTheViewOfTheSetting) {
    RegistrySetting setting = NumberSetting(L"n", 5);
    setting.view32 = true;
    const RecordedImport<&::RegCreateKeyExW> create;
    EXPECT_EQ(
        Enabled(1, {{{}, setting, 1}}),
        "Writing Registry Setting 32Bit Registry Hive - HKEY_LOCAL_MACHINE\\Software\\a\\n=5\r\n");
    EXPECT_EQ(create.Made(), Calls{Call(HKEY_LOCAL_MACHINE, L"Software\\a", 0, nullptr, 0, 0x20206,
                                        nullptr, Some, Some)});
}

TEST_F(Features, AreLoggedOnceTheyAreWritten) {
    std::vector<std::string> steps;
    g_hardwareBitmask = 2;
    Printed([&] {
        const test::NotedPrints prints(steps);
        const test::NotedCalls<&::RegSetValueExW> set(steps, "set");
        EnableFeaturesByBitmask(OneFeature);
    });
    EXPECT_THAT(steps, testing::ElementsAre("set", FeatureLine));
}

TEST_F(Features, AreChosenByTheBitmaskAsItWasAtTheBeginning) {
    const std::vector<FeatureRule> rules = {{{}, NumberSetting(L"one", 1), 1},
                                            {{}, NumberSetting(L"two", 2), 1}};
    ImportHook<&::RegSetValueExW> set([&](auto... arguments) {
        g_hardwareBitmask = 0;
        return set.Forward(arguments...);
    });
    EXPECT_THAT(Enabled(1, rules), testing::HasSubstr("two=2"));
    EXPECT_EQ(g_hardwareBitmask, 0U);
}

}  // namespace
