#include "hw/adapter_bitmask.h"

#include "hw/adapter_patterns.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/fake_adapters.h"
#include "support/import_hook.h"
#include "support/noted_steps.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cwctype>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::AdapterRecords;
using test::Call;
using test::Calls;
using test::DwordValue;
using test::FakeAdapter;
using test::ImportHook;
using test::MaskOf;
using test::ParametersKey;
using test::Printed;
using test::PutValue;
using test::RecordedImport;
using test::Some;
using test::TextValue;
using test::ValueOf;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- The tables

using Row = std::pair<std::wstring, std::uint32_t>;

std::vector<Row> Rows(const std::vector<AdapterPattern>& patterns) {
    std::vector<Row> rows;
    rows.reserve(patterns.size());
    for (const auto& [pattern, mask] : patterns) {
        rows.emplace_back(pattern, mask);
    }
    return rows;
}

TEST(HardwarePatternTable, HoldsTheModels) {
    EXPECT_EQ(Rows(HardwarePatternTable), (std::vector<Row>{{L"Tarsel.*QZ311.*", 0x00000002}}));
}

TEST(BrandPatternTable, HoldsTheModelsOfTheBrandInThisOrder) {
    EXPECT_EQ(Rows(BrandPatternTable), (std::vector<Row>{{L"brisko.*m410.*", 0x00000002},
                                                         {L"brisko.*m420.*", 0x00000004},
                                                         {L"brisko.*m440.*", 0x00000008},
                                                         {L"brisko.*m450.*", 0x00000010},
                                                         {L"brisko.*m460.*", 0x00000020},
                                                         {L"brisko.*m470.*", 0x00000040},
                                                         {L"brisko.*m471.*", 0x00000080},
                                                         {L"brisko.*w703.*", 0x00010000},
                                                         {L"brisko.*w712.*", 0x00020000},
                                                         {L"brisko.*w735.*", 0x00040000},
                                                         {L"brisko.*w745.*", 0x00080000},
                                                         {L"brisko.*w755.*", 0x00100000},
                                                         {L"brisko.*w765.*", 0x00200000},
                                                         {L"brisko.*w775.*", 0x00400000},
                                                         {L"brisko.*w785.*", 0x00800000},
                                                         {L"brisko.*QZ90.*", 0x01000000},
                                                         {L"brisko.*QZ190.*", 0x02000000},
                                                         {L"brisko.*", 0xFFFFFFFF}}));
}

TEST(BrandPatternTable, IsNotRead) {
    std::uint32_t found = 0;
    EXPECT_EQ(Printed([&] {
                  for (const wchar_t* model :
                       {L"brisko", L"brisko m410", L"brisko W785", L"brisko QZ190"}) {
                      found |= MatchAdapterBitmask(model);
                  }
              }),
              "");
    EXPECT_EQ(found, 0U);
}

// ---- Matching one description

// A row of the tests' own.
const std::vector<AdapterPattern> OneModel = {{L"Tarsel.*QZ311.*", 0x00000002}};

// The result for a description: its mask, and the output.
using Found = std::pair<std::uint32_t, std::string>;

Found Match(const std::wstring& description,
            const std::vector<AdapterPattern>& patterns = OneModel) {
    Found found;
    found.second = Printed([&] { found.first = MatchAdapterBitmask(description, patterns); });
    return found;
}

const Found Nothing = {0, ""};

std::string Line(const std::string& description, const std::string& mask = "0x2") {
    return "Found Adapter " + description + " to configure  Bitmask " + mask + "\r\n";
}

TEST(BrandPatternTable, SaysForEachModelItsOwnBit) {
    for (const auto& [model, mask] : std::vector<Row>{{L"Brisko(R) M410", 0x00000002},
                                                      {L"brisko m471", 0x00000080},
                                                      {L"BRISKO W703 PCIe", 0x00010000},
                                                      {L"Brisko QZ90", 0x01000000},
                                                      {L"Brisko QZ190", 0x02000000},
                                                      {L"Brisko QZ9", 0xFFFFFFFF}}) {
        EXPECT_EQ(Match(model, BrandPatternTable).first, mask);
    }
}

TEST(MatchAdapterBitmask, FindsTheModelAndLogsTheOriginalDescription) {
    EXPECT_EQ(Match(L"TARSEL(R) Wireless QZ311 160MHz"),
              Found(2,
                    "Found Adapter TARSEL(R) Wireless QZ311 160MHz to configure  Bitmask "
                    "0x2\r\n"));
    EXPECT_EQ(Match(L"tarselqz311"), Found(2, Line("tarselqz311")));
    EXPECT_EQ(Match(L"Tarsel QZ311 %d #2"), Found(2, Line("Tarsel QZ311 %d #2")));
}

TEST(MatchAdapterBitmask, FindsNothingElseAndLogsNothing) {
    for (const wchar_t* description :
         {L"", L"T", L"Network Adapter by Tarsel QZ311", L" Tarsel QZ311", L"Tarsel", L"QZ311",
          L"Tarsel QZ31", L"QZ311 Tarsel", L"Tarse QZ311", L"Tarsel QZ 311", L"Tar sel QZ311",
          L"\nTarsel QZ311"}) {
        EXPECT_EQ(Match(description), Nothing) << testing::PrintToString(description);
    }
}

TEST(MatchAdapterBitmask, TakesTheFirstRowThatMatches) {
    const std::vector<AdapterPattern> patterns = {
        {L"a.*", 0x1}, {L"ab.*", 0x2}, {L"b.*", 0xABCDEF01}, {L".*", 0xFFFFFFFF}};
    EXPECT_EQ(Match(L"ABC", patterns), Found(0x1, Line("ABC", "0x1")));
    EXPECT_EQ(Match(L"Bc", patterns), Found(0xABCDEF01, Line("Bc", "0xabcdef01")));
    EXPECT_EQ(Match(L"", patterns), Found(0xFFFFFFFF, Line("", "0xffffffff")));
    EXPECT_EQ(Match(L"ABC", {}), Nothing);
}

TEST(MatchAdapterBitmask, EndsAtTheFirstMatchEvenIfThatHasNoBits) {
    EXPECT_EQ(Match(L"a", {{L"a", 0}, {L"a", 1}}), Found(0, Line("a", "0x0")));
}

TEST(MatchAdapterBitmask, GoesOnAfterABadPattern) {
    EXPECT_EQ(Match(L"(", {{L"(", 1}, {L"[", 2}, {L"\\(", 4}}), Found(4, Line("(", "0x4")));
}

// The pattern has none of these letters, so that they are lowered for this one purpose.
TEST(MatchAdapterBitmask, LowersTheDescriptionOnceBeforeItTriesTheRows) {
    std::wstring asked;
    {
        ImportHook<&::towlower> lower([&](wint_t character) {
            asked += static_cast<wchar_t>(character);
            return lower.Forward(character);
        });
        Match(L"XYZ", {{L"a", 1}, {L"b", 2}, {L"a.*", 4}});
    }
    EXPECT_EQ(asked.substr(0, 3), L"XYZ");
    EXPECT_EQ(asked.find_first_of(L"XYZ", 3), std::wstring::npos);
}

TEST(MatchAdapterBitmask, TakesADescriptionOfAnyLength) {
    const std::wstring million(1'000'000, L'x');
    EXPECT_EQ(Match(L"Tarsel" + million + L"QZ311"),
              Found(2, Line("Tarsel" + std::string(million.size(), 'x') + "QZ311")));
    EXPECT_EQ(Match(million), Nothing);
}

TEST(MatchAdapterBitmask, TakesALineEndForNoPartOfADescription) {
    for (const wchar_t* lineEnd : {L"\n", L"\r", L"\r\n"}) {
        EXPECT_EQ(Match(std::wstring(L"Tarsel") + lineEnd + L"QZ311"), Nothing);
        EXPECT_EQ(Match(std::wstring(L"Tarsel QZ311") + lineEnd), Nothing);
    }
}

TEST(MatchAdapterBitmask, TakesLettersOfAllKinds) {
    EXPECT_EQ(Match(L"Tarsel\u00AE \u00C4\u00D6 QZ311"),
              Found(2, Line("Tarsel\xAE \xC4\xD6 QZ311")));
    // How much of these is written is up to the C runtime.
    for (const std::wstring& part :
         {std::wstring(L"\u0416\u4E2D"), std::wstring(1, wchar_t{0xD800}),
          std::wstring(1, wchar_t{0xDFFF}), std::wstring(L"\uFFFF")}) {
        EXPECT_EQ(Match(L"Tarsel" + part + L"QZ311" + part).first, 2U);
        EXPECT_EQ(Match(part + L"Tarsel QZ311"), Nothing);
    }
    EXPECT_EQ(Match(L"T\u0430rsel QZ311"), Nothing);  // another alphabet's "a"
}

TEST(MatchAdapterBitmask, AgreesWithTheRuleOnRandomDescriptions) {
    const std::vector<std::wstring> pieces = {
        L"tarsel", L"Tarsel",       L"TARSEL", L"taRSel", L"tarse", L"l",      L"qz311",
        L"QZ311",  L"Qz311",        L"qz31",   L"1",      L"q",     L"QZ90",   L"brisko",
        L" ",      L"(R) Wireless", L".*",     L"\u00AE", L"\n",    L"\r\n",   L"\u0130",
        L"\u212A", L"\u017F",       L"\\",     L"[",      L"\t",    L"\u4E2D", L"160MHz #2"};
    std::mt19937 random(311);  // NOLINT(cert-msc*): the same descriptions each time
    const auto below = [&](std::size_t limit) { return random() % limit; };
    std::size_t models = 0;
    std::vector<std::wstring> wrong;
    Printed([&] {
        for (int count = 0; count < 20'000; ++count) {
            std::wstring description = below(2) == 0 ? pieces[below(4)] : L"";
            for (std::size_t more = below(6); more > 0; --more) {
                description += below(8) == 0
                                   ? std::wstring(1, static_cast<wchar_t>(0xD700 + below(0x1000)))
                                   : pieces[below(pieces.size())];
            }
            const std::optional<std::uint32_t> expected = MaskOf(description);
            models += expected ? 1U : 0U;
            if (MatchAdapterBitmask(description) != expected.value_or(0)) {
                wrong.push_back(description);
            }
        }
    });
    EXPECT_THAT(wrong, IsEmpty());
    EXPECT_GT(models, 1500U);
    EXPECT_LT(models, 10'000U);
}

// ---- The list of descriptions

TEST(ListPresentAdapterDescriptions, IsEmptyWithoutRecords) {
    EXPECT_THAT(ListPresentAdapterDescriptions({}), IsEmpty());
}

TEST(ListPresentAdapterDescriptions, OmitsOnlyTheAdaptersThatAreNotPresent) {
    std::vector<FakeAdapter> adapters;
    for (int status = 0; status <= 7; ++status) {
        adapters.push_back({std::to_wstring(status), static_cast<IF_OPER_STATUS>(status)});
    }
    EXPECT_THAT(ListPresentAdapterDescriptions(AdapterRecords(adapters)),
                ElementsAre(L"0", L"1", L"2", L"3", L"4", L"5", L"7"));
    EXPECT_THAT(ListPresentAdapterDescriptions(AdapterRecords({{L"a", IfOperStatusNotPresent}})),
                IsEmpty());
}

TEST(ListPresentAdapterDescriptions, KeepsTheOrderInWhichTheRecordsAreLinked) {
    EXPECT_THAT(ListPresentAdapterDescriptions(
                    AdapterRecords({{L"one"}, {L"two"}, {L"three"}, {L"two"}, {L""}})),
                ElementsAre(L"one", L"two", L"three", L"two", L""));
}

TEST(ListPresentAdapterDescriptions, KeepsTextsOfItsOwn) {
    std::vector<std::byte> records = AdapterRecords({{L"Tarsel\u00AE QZ311"}, {L"\r\n"}});
    const std::vector<std::wstring> descriptions = ListPresentAdapterDescriptions(records);
    std::ranges::fill(records, std::byte{0});
    EXPECT_THAT(descriptions, ElementsAre(L"Tarsel\u00AE QZ311", L"\r\n"));
}

// ---- The whole computation

constexpr wchar_t ResultKey[] = L"SOFTWARE\\Tarsel\\Nimbus";

constexpr char NoMemory[] = "Error allocating memory needed to call GetAdaptersAddresses\n";

std::string ListError(const std::string& error) {
    return "GetAdaptersInfo failed with error: " + error + "\n";
}

// The bitmask of a machine with a private registry and, unless a test changes that, one model.
class HardwareBitmask : public testing::Test {
protected:
    HardwareBitmask() { machine.adapters = {{L"Tarsel QZ311"}}; }

    // What is printed.
    std::string Log() {
        return Printed([this] { bitmask = ComputeHardwareBitmask(L"the gate", L"the result"); });
    }

    // Computes it and expects this bitmask, kept in the registry, and this log.
    void ExpectBitmask(std::uint32_t expected, const std::string& log) {
        EXPECT_EQ(Log(), log);
        EXPECT_EQ(bitmask, expected);
        EXPECT_EQ(Result(), DwordValue(expected));
    }

    static void SetGate(const test::RegistryValue& value) {
        PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"the gate", value);
    }

    static std::optional<test::RegistryValue> Result() {
        return ValueOf(HKEY_LOCAL_MACHINE, ResultKey, L"the result");
    }

    // The calls of a listing whose second query is given `size` bytes, if it is made.
    static std::vector<std::string> Listing(std::optional<std::size_t> size) {
        std::vector<std::string> calls = {"LoadLibraryExW(iphlpapi.dll, null, 2048)",
                                          "GetProcAddress(library, GetAdaptersAddresses)",
                                          "GetAdaptersAddresses(0, 256, null, null, 0)"};
        if (size) {
            calls.push_back("GetAdaptersAddresses(0, 256, null, aligned, " + std::to_string(*size) +
                            ")");
        }
        calls.emplace_back("FreeLibrary(library)");
        return calls;
    }

    std::uint32_t bitmask = 0;
    test::FakeAdapters machine;

private:
    test::PrivateRegistry registry_;
};

TEST_F(HardwareBitmask, IsZeroWithoutAdapters) {
    machine.adapters.clear();
    ExpectBitmask(0, "");
    EXPECT_EQ(machine.calls.Lines(), Listing(std::nullopt));
}

TEST_F(HardwareBitmask, HasTheBitOfAPresentAdapterInAnyState) {
    for (int status = 1; status <= 7; ++status) {
        machine.adapters = {{L"Tarsel QZ311", static_cast<IF_OPER_STATUS>(status)}};
        const bool present = status != IfOperStatusNotPresent;
        SCOPED_TRACE(status);
        ExpectBitmask(present ? 2 : 0, present ? Line("Tarsel QZ311") : "");
    }
}

TEST_F(HardwareBitmask, HasABitOnceForAllAdaptersThatHaveIt) {
    machine.adapters = {{L"other"},
                        {L"Tarsel QZ311 #2"},
                        {L"Tarsel QZ311", IfOperStatusNotPresent},
                        {L"TARSEL QZ311", IfOperStatusDown},
                        {L"by Tarsel QZ311"},
                        {L"Tarsel QZ311 #1"}};
    ExpectBitmask(2, Line("Tarsel QZ311 #2") + Line("TARSEL QZ311") + Line("Tarsel QZ311 #1"));
}

TEST_F(HardwareBitmask, AsksForTheSizeAndThenForAllInterfacesIntoABufferOfThatSize) {
    machine.adapters = {{L"Tarsel QZ311"}, {L"other one"}};
    const std::size_t size = AdapterRecords(machine.adapters).size();
    ExpectBitmask(2, Line("Tarsel QZ311"));
    EXPECT_EQ(machine.calls.Lines(), Listing(size));
}

TEST_F(HardwareBitmask, TakesABufferOfTheSizeThatIsReported) {
    for (const ULONG size : {15'000U, 15'001U, 1'000'003U}) {
        machine.reportedSize = size;
        machine.calls = {};
        ExpectBitmask(2, Line("Tarsel QZ311"));
        EXPECT_EQ(machine.calls.Lines(), Listing(size));
    }
}

TEST_F(HardwareBitmask, TakesOneOtherAnswerThanTheSizeForNoAdapters) {
    for (const ULONG result : {0U, 232U, 87U, 1U, 8U, 5U, 1314U, 110U, 112U, 234U}) {
        machine.sizeResult = result;
        machine.calls = {};
        ExpectBitmask(0, "");
        EXPECT_EQ(machine.calls.Lines(), Listing(std::nullopt));
    }
}

TEST_F(HardwareBitmask, SaysThatThereIsNoBufferForNoSize) {
    machine.reportedSize = 0;
    ExpectBitmask(0, NoMemory);
    EXPECT_EQ(machine.calls.Lines(), Listing(std::nullopt));
}

TEST_F(HardwareBitmask, LogsTheErrorOfTheList) {
    for (const ULONG error : {111U, 87U, 1314U, 232U, 1U, 0x8000'0001U, 8U, 5U, 0xFFFF'FFFFU}) {
        machine.listResult = error;
        ExpectBitmask(0, ListError(std::to_string(error)));
    }
}

TEST_F(HardwareBitmask, IsZeroIfTheListGrowsInBetween) {
    machine.betweenQueries = [this] { machine.adapters.push_back({L"new"}); };
    const std::size_t size = AdapterRecords(machine.adapters).size();
    ExpectBitmask(0, ListError("111"));
    EXPECT_EQ(machine.calls.Lines(), Listing(size));  // and not once more
}

TEST_F(HardwareBitmask, IsThatOfAListThatShrinksInBetween) {
    machine.adapters = {{L"Tarsel QZ311"}, {L"Tarsel QZ311 #2"}};
    machine.betweenQueries = [this] { machine.adapters.pop_back(); };
    ExpectBitmask(2, Line("Tarsel QZ311"));
    machine.adapters = {{L"Tarsel QZ311"}};
    ExpectBitmask(0, ListError("232"));
}

TEST_F(HardwareBitmask, IsZeroWithoutTheLibraryOrItsFunction) {
    machine.functionIsThere = false;
    ExpectBitmask(0, "");
    EXPECT_THAT(machine.calls.Lines(), ElementsAre("LoadLibraryExW(iphlpapi.dll, null, 2048)",
                                                   "GetProcAddress(library, GetAdaptersAddresses)",
                                                   "FreeLibrary(library)"));
    machine.canBeLoaded = false;
    machine.calls = {};
    ExpectBitmask(0, "");
    EXPECT_THAT(machine.calls.Lines(), ElementsAre("LoadLibraryExW(iphlpapi.dll, null, 2048)"));
}

TEST_F(HardwareBitmask, TakesDescriptionsOfAnyLengthAndContent) {
    machine.adapters = {{L""},
                        {L"T"},
                        {std::wstring(1'000'000, L'T')},
                        {L"Tarsel\r\nQZ311"},
                        {L"Tarsel\u00AEQZ311"},
                        {std::wstring(1, wchar_t{0xD800})}};
    ExpectBitmask(2, Line("Tarsel\xAEQZ311"));
}

TEST_F(HardwareBitmask, IsComputedIfTheGateIs1OrNotThere) {
    ExpectBitmask(2, Line("Tarsel QZ311"));  // not even the key
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"another value", DwordValue(0x12));
    ExpectBitmask(2, Line("Tarsel QZ311"));
    SetGate(DwordValue(1));
    ExpectBitmask(2, Line("Tarsel QZ311"));
    machine.adapters.clear();
    ExpectBitmask(0, "");
}

TEST_F(HardwareBitmask, IsAnyOtherValueOfTheGate) {
    for (const std::uint32_t gate : {0U, 2U, 3U, 0x12U, 0x101U, 0x8000'0001U, 0xFFFF'FFFFU}) {
        SetGate(DwordValue(gate));
        machine.calls = {};
        ExpectBitmask(gate, "");
        EXPECT_EQ(machine.calls.Lines().size(), 5U);  // still listed
    }
}

TEST_F(HardwareBitmask, IsComputedIfTheGateIsNoNumber) {
    const test::RegistryValue gates[] = {TextValue(L"0"),
                                         TextValue(L"0", REG_EXPAND_SZ),
                                         {REG_BINARY, {0, 0, 0, 0}},
                                         {REG_NONE, {0, 0, 0, 0}},
                                         {REG_QWORD, std::vector<BYTE>(8)},
                                         {REG_DWORD_BIG_ENDIAN, {0, 0, 0, 0}},
                                         {REG_DWORD, {0, 0}},
                                         {REG_DWORD, {}}};
    for (const test::RegistryValue& gate : gates) {
        SetGate(gate);
        SCOPED_TRACE(gate.type);
        ExpectBitmask(2, Line("Tarsel QZ311"));
    }
}

TEST_F(HardwareBitmask, IsComputedIfTheGateCannotBeRead) {
    SetGate(DwordValue(0x12));
    const ImportHook<&::RegOpenKeyExW> open([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(Log(), Line("Tarsel QZ311"));
    EXPECT_EQ(bitmask, 2U);
}

TEST_F(HardwareBitmask, ComesWithTheErrorsOfTheListWhateverTheGateSays) {
    for (const std::uint32_t gate : {0U, 0x12U}) {
        SetGate(DwordValue(gate));
        machine.listResult = ERROR_INVALID_PARAMETER;
        ExpectBitmask(gate, ListError("87"));
        machine.reportedSize = 0;
        ExpectBitmask(gate, NoMemory);
        machine.reportedSize.reset();
    }
}

TEST_F(HardwareBitmask, IsReadFromAndKeptInTheDefaultViewUnderTheNamesThatAreGiven) {
    machine.adapters.clear();
    SetGate(DwordValue(0x12));
    const RecordedImport<&::RegOpenKeyExW> open;
    const RecordedImport<&::RegQueryValueExW> query;
    const RecordedImport<&::RegCreateKeyExW> create;
    const RecordedImport<&::RegSetValueExW> set;
    Log();
    EXPECT_EQ(open.Made(), Calls{Call(HKEY_LOCAL_MACHINE, ParametersKey, 0, 0x20019, Some)});
    ASSERT_EQ(query.Made().size(), 1U);
    EXPECT_THAT(query.Made()[0], testing::HasSubstr(Call(L"the gate")));
    EXPECT_EQ(create.Made(), Calls{Call(HKEY_LOCAL_MACHINE, ResultKey, 0, nullptr, 0, 0x20006,
                                        nullptr, Some, Some)});
    ASSERT_EQ(set.Made().size(), 1U);
    EXPECT_THAT(set.Made()[0], testing::EndsWith(Call(L"the result", 0, 4, Some, 4)));
    EXPECT_EQ(Result(), DwordValue(0x12));
}

TEST_F(HardwareBitmask, ReplacesTheResultOfAnEarlierTimeWhateverItsType) {
    machine.adapters.clear();
    PutValue(HKEY_LOCAL_MACHINE, ResultKey, L"the result", TextValue(L"before"));
    ExpectBitmask(0, "");
    PutValue(HKEY_LOCAL_MACHINE, ResultKey, L"the result", DwordValue(7));
    ExpectBitmask(0, "");
}

TEST_F(HardwareBitmask, IsReturnedEvenIfItCannotBeKept) {
    {
        const ImportHook<&::RegSetValueExW> set([](auto...) { return ERROR_ACCESS_DENIED; });
        EXPECT_EQ(Log(), Line("Tarsel QZ311"));
        EXPECT_EQ(bitmask, 2U);
    }
    bitmask = 0;
    const ImportHook<&::RegCreateKeyExW> create([](auto...) { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(Log(), Line("Tarsel QZ311"));
    EXPECT_EQ(bitmask, 2U);
    EXPECT_EQ(Result(), std::nullopt);
}

TEST_F(HardwareBitmask, IsListedThenGatedThenMatchedThenKept) {
    machine.adapters = {{L"Tarsel QZ311"}, {L"Tarsel QZ311 #2"}};
    std::vector<std::string> steps;
    machine.betweenQueries = [&] { steps.emplace_back("list"); };
    Printed([&] {
        const test::NotedPrints prints(steps);
        const test::NotedCalls<&::RegQueryValueExW> query(steps, "gate");
        const test::NotedCalls<&::RegSetValueExW> set(steps, "keep");
        SetGate(DwordValue(1));
        steps.clear();
        bitmask = ComputeHardwareBitmask(L"the gate", L"the result");
    });
    EXPECT_THAT(steps,
                ElementsAre("list", "gate", Line("Tarsel QZ311"), Line("Tarsel QZ311 #2"), "keep"));
}

TEST_F(HardwareBitmask, IsNotWhatLaterStepsReadUntilItIsSet) {
    EXPECT_EQ(g_hardwareBitmask, 0U);
    Log();
    EXPECT_EQ(g_hardwareBitmask, 0U);
}

// The machine tests know which adapters exist.
TEST(HardwareBitmaskOfThisMachine, IsComputedFromItsRealAdapters) {
    const test::PrivateRegistry registry;
    const RecordedImport<&::FreeLibrary> freed;
    std::uint32_t bitmask = 0xFF;
    const std::string log =
        Printed([&] { bitmask = ComputeHardwareBitmask(L"the gate", L"the result"); });
    EXPECT_EQ(bitmask, log.empty() ? 0U : 2U);
    EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, ResultKey, L"the result"), DwordValue(bitmask));
    EXPECT_EQ(freed.Made().size(), 1U);  // it had been loaded
}

}  // namespace
