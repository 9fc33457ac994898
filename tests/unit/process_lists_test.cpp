#include "proc/process_lists.h"

#include "driver/actions.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace {

using Row = std::tuple<std::int32_t, std::wstring, std::wstring>;

static_assert(std::is_same_v<std::underlying_type_t<EntryKind>, std::int32_t>);
static_assert(std::is_same_v<std::underlying_type_t<ActionBits>, std::uint32_t>);

std::vector<Row> Rows(const std::vector<ProcessEntry>& list) {
    std::vector<Row> rows;
    rows.reserve(list.size());
    for (const auto& [kind, name, extra] : list) {
        rows.emplace_back(static_cast<std::int32_t>(kind), name, extra);
    }
    return rows;
}

TEST(ProcessLists, NumberTheKindsOfEntries) {
    EXPECT_EQ(static_cast<int>(EntryKind::Service), 0);
    EXPECT_EQ(static_cast<int>(EntryKind::LaunchApp), 1);
    EXPECT_EQ(static_cast<int>(EntryKind::QuitApp), 2);
}

TEST(ProcessLists, StopTheApplicationFirstAndThenServices) {
    const std::vector<Row> expected = {{2, L"ZEFIR.exe", L"Tarsel\u00AE Lumetra"},
                                       {0, L"brisko network service x64", L""},
                                       {0, L"hvnetsvc", L""},
                                       {0, L"Corvo", L""},
                                       {0, L"TarselHubService", L""},
                                       {0, L"Tarsel Nimbus Network Service", L""},
                                       {0, L"Ardex", L""},
                                       {0, L"Tarsel Metrics Service", L""},
                                       {0, L"Tarsel Data Relay Service", L""}};
    EXPECT_EQ(Rows(StopList), expected);
}

TEST(ProcessLists, StartTheCompanionFirstAndTheMainServiceAfterTwoOthers) {
    const std::vector<Row> expected = {{1, L"BriskoLU.exe", L"-u"},
                                       {0, L"Ardex", L""},
                                       {0, L"Tarsel Metrics Service", L""},
                                       {0, L"Tarsel Nimbus Network Service", L""},
                                       {0, L"Tarsel Data Relay Service", L""}};
    EXPECT_EQ(Rows(StartList), expected);
}

TEST(ProcessLists, DisableServicesOnly) {
    const std::vector<Row> expected = {{0, L"Corvo", L""},
                                       {0, L"TarselHubService", L""},
                                       {0, L"Ardex", L""},
                                       {0, L"Tarsel Metrics Service", L""},
                                       {0, L"Tarsel Nimbus Network Service", L""},
                                       {0, L"Tarsel Data Relay Service", L""}};
    EXPECT_EQ(Rows(DisableList), expected);
}

TEST(ProcessLists, RecordTheServicesOfTheProduct) {
    const std::vector<Row> expected = {{0, L"Corvo", L""},
                                       {0, L"TarselHubService", L""},
                                       {0, L"Tarsel Nimbus Network Service", L""},
                                       {0, L"Ardex", L""},
                                       {0, L"Tarsel Metrics Service", L""},
                                       {0, L"Tarsel Data Relay Service", L""}};
    EXPECT_EQ(Rows(ProductServiceList), expected);
}

}  // namespace
