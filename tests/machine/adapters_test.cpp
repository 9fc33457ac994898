// Whole runs on a machine with real network adapters with all kinds of names.

#include "machine/machine.h"
#include "support/expected_log.h"
#include "support/fake_adapters.h"
#include "support/file_contents.h"

#include <windows.h>
#include <winsock2.h>

#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace test;  // the expected log

// Those that the machine is given, plus those that it always has; and the ones that the program
// looks for.
const std::vector<std::wstring> AllAdapters = {
    L"lo",          L"TarselQZ311",   L"by_TarselQZ311",    L"TARSEL_qz311_b", L"TarselQZ31",
    L"QZ311Tarsel", L"tarselqz311.x", L"Tarsel\u00AEQZ311", L"brisko_m410"};
const std::vector<std::wstring> WantedAdapters = {L"TarselQZ311", L"TARSEL_qz311_b",
                                                  L"tarselqz311.x", L"Tarsel\u00AEQZ311"};

// The descriptions of the machine's adapters in the platform's order.
std::vector<std::wstring> Descriptions() {
    ULONG size = 100'000;
    std::vector<std::byte> buffer(size);
    auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
    std::vector<std::wstring> descriptions;
    if (::GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_ALL_INTERFACES, nullptr, adapter,
                               &size) == ERROR_SUCCESS) {
        for (; adapter != nullptr; adapter = adapter->Next) {
            descriptions.emplace_back(adapter->Description);
        }
    }
    return descriptions;
}

class Adapters : public testing::Test {
protected:
    void SetUp() override {
        if (::GetEnvironmentVariableW(L"FINASET_ADAPTERS", nullptr, 0) == 0) {
            GTEST_SKIP() << "this machine cannot be given adapters; see fresh_machine.sh";
        }
        ASSERT_THAT(Descriptions(), testing::UnorderedElementsAreArray(AllAdapters));
        machine.InstallProduct();
    }

    // Runs the configure action, or all if there are no arguments, and expects its log and what it
    // found and wrote.
    void ExpectRun(Course course, const std::wstring& arguments = L"/CONFIGURE") {
        course.actions = arguments.empty() ? course.actions : 4;
        course.adapters = Descriptions();
        const auto before = machine.Describe().settings;
        const FinishedRun run = machine.Run(arguments);
        EXPECT_EQ(run.log, LogOf(course));
        EXPECT_EQ(run.exitCode, 0U);
        const MachineState after = machine.Describe();
        EXPECT_EQ(after.hardwareBitmask, BitmaskOf(course));
        EXPECT_EQ(after.settings, Configured(before, BitmaskOf(course)));
    }

    const Course later = {.staleSettings = false, .configured = true};

    Machine machine;
};

TEST_F(Adapters, ThatAreKnownAreFoundInThePlatformsOrderAndEnableTheFeature) {
    for (const std::wstring& adapter : AllAdapters) {
        EXPECT_EQ(MaskOf(adapter).value_or(0) == 2, std::ranges::count(WantedAdapters, adapter) > 0)
            << testing::PrintToString(adapter);
    }
    machine.StartProduct();
    ExpectRun({}, L"");
    EXPECT_EQ(machine.Describe().settings.at(L"MultiInterface_Enabled"), L"1");
}

TEST_F(Adapters, AreFoundAgainEachTime) {
    ExpectRun({});
    machine.WriteSetting(L"MultiInterface_Enabled", 0);
    ExpectRun(later);
    EXPECT_EQ(machine.Describe().settings.at(L"MultiInterface_Enabled"), L"1");
}

TEST_F(Adapters, AreNotMatchedIfASettingGivesTheBitmask) {
    struct Row {
        DWORD gate;
        bool feature;
    };
    for (const auto& [gate, feature] :
         {Row{0, false}, Row{2, true}, Row{0x12, true}, Row{4, false}, Row{0xFFFF'FFFF, true}}) {
        SCOPED_TRACE(gate);
        std::filesystem::remove_all(Machine::DataDirectory());
        machine.WriteStaleSettings();
        machine.RemoveSetting(L"MultiInterface_Enabled");
        machine.WriteSetting(L"Tarsel_HWConfigDefault", gate);
        ExpectRun({.bitmask = gate});
        EXPECT_EQ(machine.Describe().settings.contains(L"MultiInterface_Enabled"), feature);
    }
}

TEST_F(Adapters, AreMatchedIfTheSettingIs1OrNoNumber) {
    machine.WriteSetting(L"Tarsel_HWConfigDefault", 1);
    ExpectRun({});
    machine.WriteTextSetting(L"Tarsel_HWConfigDefault", L"0");
    ExpectRun(later);
}

TEST_F(Adapters, MatterToNoOptionButConfigure) {
    for (const wchar_t* option : {L"/START", L"/STOP", L"/DISABLE", L"/?"}) {
        static_cast<void>(machine.Run(option));
    }
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.hardwareBitmask, std::nullopt);
    EXPECT_FALSE(after.settings.contains(L"MultiInterface_Enabled"));
}

// If it were loaded, there would be no adapters, or no run.
TEST_F(Adapters, AreNotListedByALibraryBesideTheProgram) {
    PutFile(machine.ProgramDirectory() / L"iphlpapi.dll", "not the system's");
    ExpectRun({});
}

}  // namespace
