#include "config/service_parameters.h"
#include "support/fake_adapters.h"
#include "support/import_hook.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "tools/verify_rows.h"
#include "verify/settings.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using test::Denied;
using test::Shown;
using testing::ElementsAre;
using testing::IsEmpty;
using verify::CheckBitmask;
using verify::CheckDeleted;
using verify::CheckFeatures;
using verify::CheckWritten;

constexpr wchar_t Key[] = L"Software\\a";
const std::wstring Name = L"HKEY_LOCAL_MACHINE\\Software\\a\\value";

// The row of the value.
std::wstring ValueRow(const std::wstring& verdict, const std::wstring& expected,
                      const std::wstring& found) {
    return verdict + L" | setting | " + Name + L" | " + expected + L" | " + found;
}

RegistrySetting Setting(DWORD type = REG_DWORD, DWORD number = 0, const wchar_t* text = L"") {
    return {.root = HKEY_LOCAL_MACHINE,
            .keyPath = Key,
            .valueName = L"value",
            .type = type,
            .number = number,
            .text = text};
}

class VerifiedSettings : public testing::Test {
protected:
    static void Put(const test::RegistryValue& value) {
        test::PutValue(HKEY_LOCAL_MACHINE, Key, L"value", value);
    }
    static std::vector<std::wstring> Deleted(const RegistrySetting& setting) {
        return Shown(CheckDeleted({&setting, 1}));
    }
    static std::vector<std::wstring> Written(const RegistrySetting& setting) {
        return Shown(CheckWritten({&setting, 1}));
    }

    test::PrivateRegistry registry_;
};

TEST_F(VerifiedSettings, ThatAreDeletedAreAbsent) {
    const std::wstring ok = ValueRow(L"ok", L"absent", L"absent");
    EXPECT_THAT(Deleted(Setting()), ElementsAre(ok));  // the key does not exist either
    test::MakeKey(HKEY_LOCAL_MACHINE, Key);
    EXPECT_THAT(Deleted(Setting()), ElementsAre(ok));
    Put(test::TextValue(L"C:\\Stale"));
    EXPECT_THAT(Deleted(Setting()), ElementsAre(ValueRow(L"DIFFERS", L"absent", L"\"C:\\Stale\"")));
}

TEST_F(VerifiedSettings, WhoseWholeKeyIsDeletedHaveNone) {
    RegistrySetting setting = Setting();
    setting.valueName = L"";
    EXPECT_THAT(Deleted(setting),
                ElementsAre(L"ok | setting | HKEY_LOCAL_MACHINE\\Software\\a\\ | absent | absent"));
    test::MakeKey(HKEY_LOCAL_MACHINE, Key);
    EXPECT_THAT(
        Deleted(setting),
        ElementsAre(L"DIFFERS | setting | HKEY_LOCAL_MACHINE\\Software\\a\\ | absent | a key"));
}

TEST_F(VerifiedSettings, ThatCannotBeReadAreUnknown) {
    const test::ImportHook<&::RegOpenKeyExW> hook([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_THAT(Deleted(Setting()), ElementsAre(ValueRow(L"UNKNOWN", L"absent", Denied)));
    EXPECT_THAT(Written(Setting()), ElementsAre(ValueRow(L"UNKNOWN", L"0", Denied)));
}

TEST_F(VerifiedSettings, WhoseValueCannotBeReadAreUnknown) {
    test::MakeKey(HKEY_LOCAL_MACHINE, Key);
    const test::ImportHook<&::RegQueryValueExW> hook([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_THAT(Deleted(Setting()), ElementsAre(ValueRow(L"UNKNOWN", L"absent", Denied)));
}

TEST_F(VerifiedSettings, OfNumbersAreAsTheyAreWritten) {
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), ElementsAre(ValueRow(L"DIFFERS", L"7", L"absent")));
    Put(test::DwordValue(8));
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), ElementsAre(ValueRow(L"DIFFERS", L"7", L"8")));
    Put(test::DwordValue(7));
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), ElementsAre(ValueRow(L"ok", L"7", L"7")));
}

TEST_F(VerifiedSettings, OfTextsAreAsTheyAreWritten) {
    Put(test::TextValue(L"b"));
    EXPECT_THAT(Written(Setting(REG_SZ, 0, L"a")),
                ElementsAre(ValueRow(L"DIFFERS", L"\"a\"", L"\"b\"")));
    const std::wstring longText(3000, L'a');
    Put(test::TextValue(longText));
    EXPECT_THAT(Written(Setting(REG_SZ, 0, longText.c_str())),
                ElementsAre(L"ok | setting | " + Name + L" | \"" + longText + L"\" | \"" +
                            longText + L"\""));
}

TEST_F(VerifiedSettings, ThatAreDamagedSayWhatTheyAre) {
    const auto found = [&](const std::wstring& text) {
        return ElementsAre(L"DIFFERS | setting | " + Name + L" | 7 | " + text);
    };
    Put({REG_DWORD, {7}});
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), found(L"1 bytes of type 4"));
    Put({REG_BINARY, {7, 0, 0, 0}});
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), found(L"4 bytes of type 3"));
    Put({REG_SZ, test::TextBytes(L"without a zero")});
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), found(L"\"without a zero\""));
    Put({REG_SZ, {'x', 0, 'y'}});
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), found(L"\"x\""));
    Put({REG_SZ, {}});
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), found(L"\"\""));
    Put({REG_SZ, std::vector<BYTE>(100'000, 1)});
    EXPECT_THAT(Written(Setting(REG_DWORD, 7)), found(L"100000 bytes of type 1"));
}

TEST_F(VerifiedSettings, WithoutRootOrOfNoTypeThatIsWrittenHaveNoRow) {
    EXPECT_THAT(Deleted({}), IsEmpty());
    EXPECT_THAT(Written({}), IsEmpty());
    EXPECT_THAT(Written(Setting(REG_BINARY)), IsEmpty());
}

TEST_F(VerifiedSettings, AreLookedForInTheirOwnView) {
    std::vector<REGSAM> rights;
    test::ImportHook<&::RegOpenKeyExW> hook(
        [&](HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
            rights.push_back(access);
            return hook.Forward(root, path, options, access, key);
        });
    RegistrySetting setting = Setting();
    setting.view32 = true;
    Written(setting);
    Deleted(setting);
    setting.valueName = L"";
    Deleted(setting);
    Written(Setting());
    setting.view32 = false;
    Deleted(setting);
    EXPECT_THAT(rights,
                ElementsAre(KEY_QUERY_VALUE | KEY_WOW64_32KEY, KEY_QUERY_VALUE | KEY_WOW64_32KEY,
                            KEY_QUERY_VALUE | KEY_WOW64_32KEY, KEY_QUERY_VALUE, KEY_QUERY_VALUE));
}

// The bitmask, and what it requires.
class VerifiedBitmask : public testing::Test {
protected:
    static std::vector<std::wstring> Bitmask() {
        const std::vector<AdapterPattern> patterns = {{L"first.*", 2}, {L"f.*", 4}};
        return Shown(CheckBitmask(L"gate", L"bitmask", patterns));
    }
    static void Store(DWORD bitmask) {
        test::PutValue(HKEY_LOCAL_MACHINE, HardwareBitmaskKey, L"bitmask",
                       test::DwordValue(bitmask));
    }
    static void SetGate(const test::RegistryValue& value) {
        test::PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, L"gate", value);
    }
    static std::wstring Row(const std::wstring& verdict, const std::wstring& expected,
                            const std::wstring& found) {
        return verdict + L" | setting | HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Nimbus\\bitmask | " +
               expected + L" | " + found;
    }

    test::PrivateRegistry registry_;
    test::FakeAdapters adapters_;
};

TEST_F(VerifiedBitmask, IsThatOfTheAdapters) {
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"DIFFERS", L"0", L"absent")));
    adapters_.adapters = {{L"FIRST model"}, {L"another"}, {L"Fourth"}};
    Store(2);
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"DIFFERS", L"6", L"2")));
    Store(6);
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"ok", L"6", L"6")));
}

TEST_F(VerifiedBitmask, IsThatOfTheGateIfThatIsNotOne) {
    adapters_.adapters = {{L"first"}};
    Store(2);
    SetGate(test::DwordValue(0));
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"DIFFERS", L"0", L"2")));
    SetGate(test::DwordValue(1));
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"ok", L"2", L"2")));
    SetGate(test::TextValue(L"0"));  // damaged: no gate
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"ok", L"2", L"2")));
}

TEST_F(VerifiedBitmask, OfNoAdapterAtAllIsZero) {
    adapters_.sizeResult = ERROR_NO_DATA;
    Store(0);
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"ok", L"0", L"0")));
}

TEST_F(VerifiedBitmask, IsUnknownIfTheAdaptersAre) {
    Store(0);
    adapters_.adapters = {{L"any"}};
    const std::wstring start = L"the network adapters: error ";
    adapters_.listResult = ERROR_ACCESS_DENIED;
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"UNKNOWN", L"that of the adapters",
                                           L"the network adapters: " + Denied)));
    adapters_.listResult = ERROR_BUFFER_OVERFLOW;  // forever
    EXPECT_THAT(
        Bitmask(),
        ElementsAre(testing::StartsWith(Row(L"UNKNOWN", L"that of the adapters", start + L"111"))));
    adapters_.functionIsThere = false;
    EXPECT_THAT(
        Bitmask(),
        ElementsAre(testing::StartsWith(Row(L"UNKNOWN", L"that of the adapters", start + L"127"))));
    adapters_.canBeLoaded = false;
    EXPECT_THAT(
        Bitmask(),
        ElementsAre(testing::StartsWith(Row(L"UNKNOWN", L"that of the adapters", start + L"127"))));
}

TEST_F(VerifiedBitmask, IsUnknownIfTheGateIs) {
    Store(0);
    test::ImportHook<&::RegOpenKeyExW> hook([&](HKEY root, LPCWSTR path, auto... more) {
        return path == std::wstring(ServiceParametersKey) ? ERROR_ACCESS_DENIED
                                                          : hook.Forward(root, path, more...);
    });
    EXPECT_THAT(Bitmask(), ElementsAre(Row(L"UNKNOWN", L"as gate says", Denied)));
}

TEST_F(VerifiedBitmask, AsksForTheFeatures) {
    RegistrySetting whenClear = Setting(REG_DWORD, 3);
    RegistrySetting whenSet = Setting(REG_DWORD, 4);
    const std::vector<FeatureRule> rules = {{whenClear, whenSet, 6},
                                            {{.type = REG_DWORD}, whenSet, 8}};
    test::PutValue(HKEY_LOCAL_MACHINE, Key, L"value", test::DwordValue(3));
    Store(1);
    EXPECT_THAT(Shown(CheckFeatures(rules, L"bitmask")), ElementsAre(ValueRow(L"ok", L"3", L"3")));
    Store(10);
    EXPECT_THAT(Shown(CheckFeatures(rules, L"bitmask")),
                ElementsAre(ValueRow(L"DIFFERS", L"4", L"3"), ValueRow(L"DIFFERS", L"4", L"3")));
}

TEST_F(VerifiedBitmask, LeavesTheFeaturesUnknownIfItIsNotThere) {
    RegistrySetting other = Setting();
    other.valueName = L"other";
    const std::vector<FeatureRule> rules = {{{}, Setting(), 2}, {other, {}, 2}, {{}, {}, 2}};
    const std::wstring rest = L" | as the stored bitmask says | there is no bitmask to go by";
    EXPECT_THAT(Shown(CheckFeatures(rules, L"bitmask")),
                ElementsAre(L"UNKNOWN | setting | " + Name + rest,
                            L"UNKNOWN | setting | HKEY_LOCAL_MACHINE\\Software\\a\\other" + rest));
}

}  // namespace
