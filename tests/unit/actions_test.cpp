#include "driver/actions.h"

#include "proc/process.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/expected_log.h"
#include "support/failing_allocation.h"
#include "support/fake_event_log.h"
#include "support/fake_processes.h"
#include "support/fake_services.h"
#include "support/import_hook.h"
#include "support/noted_steps.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <aclapi.h>
#include <objbase.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <ostream>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using test::Course;
using test::DwordValue;
using test::ImportHook;
using test::LogBegin;
using test::LogEnd;
using test::ParametersKey;
using test::Printed;
using test::PutValue;
using test::RegistryValue;
using test::UsageText;
using test::Verdicts;
using testing::ElementsAre;
using testing::IsEmpty;
using enum test::Verdict;

constexpr char StopBanner[] =
    "\r\n------------------------\r\n"
    "Stopping Processes.....\r\n"
    "------------------------\r\n";
constexpr char StartBanner[] =
    "\r\n----------------------\r\n"
    "Starting Processes.....\r\n"
    "----------------------\r\n";

// A run with these bits on a machine without the product, on which no path can be told, so that
// nothing of the product can be there. COM is not initialised, so no task is registered, in
// silence.
Course WithoutProduct(std::uint32_t actions) {
    const std::string ownDirectory = test::Narrow(GetOwnDirectory());
    return {.actions = actions,
            .verdicts = test::NothingInstalled,
            .staleSettings = false,
            .shipped = std::set<std::wstring>(),
            .startupTask = true,
            .programDirectory = ownDirectory.substr(0, ownDirectory.find_last_of('\\'))};
}

std::string LogOf(std::uint32_t actions) {
    return test::LogOf(WithoutProduct(actions));
}

// The arguments of wmain.
class Arguments {
public:
    explicit Arguments(std::vector<std::wstring> options) : texts_(std::move(options)) {
        texts_.insert(texts_.begin(), L"C:\\Program Files\\X\\Finaset.exe");
        for (const std::wstring& text : texts_) {
            pointers_.push_back(text.c_str());
        }
        pointers_.push_back(nullptr);
    }

    [[nodiscard]] int Count() const { return static_cast<int>(texts_.size()); }
    [[nodiscard]] const wchar_t* const* Vector() const { return pointers_.data(); }

private:
    std::vector<std::wstring> texts_;
    std::vector<const wchar_t*> pointers_;
};

std::string LogOfRun(std::vector<std::wstring> options) {
    const Arguments arguments(std::move(options));
    return Printed([&] { RunActions(arguments.Count(), arguments.Vector()); });
}

// The registry of a machine, empty except for what a test adds. Its product directories are
// unknown, it has no adapters, and every access control list can be set.
class ActionsTest : public testing::Test {
protected:
    static void SetRegistry(const RegistryValue& value) {
        PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FinasetAction", value);
    }

    static void SetRegistry(std::uint32_t actions) { SetRegistry(DwordValue(actions)); }

    // The choice, and that it prints nothing.
    static std::uint32_t Choose(std::vector<std::wstring> options) {
        const Arguments arguments(std::move(options));
        std::uint32_t chosen = 0;
        EXPECT_EQ(Printed([&] { chosen = ChooseActions(arguments.Count(), arguments.Vector()); }),
                  "");
        return chosen;
    }

    DWORD securingError_ = ERROR_SUCCESS;

private:
    test::PrivateRegistry registry_;
    ImportHook<&::ExpandEnvironmentStringsW> expand_{
        [this](LPCWSTR path, LPWSTR buffer, DWORD size) {
            return std::wstring(path).find(L'%') != std::wstring::npos
                       ? 0
                       : expand_.Forward(path, buffer, size);
        }};
    // Without adapters: on Windows, the library that lists them may want more of the registry.
    ImportHook<&::LoadLibraryExW> load_{[this](LPCWSTR name, HANDLE file, DWORD flags) {
        return std::wstring_view(name) == L"iphlpapi.dll" ? nullptr
                                                          : load_.Forward(name, file, flags);
    }};
    ImportHook<&::SetNamedSecurityInfoW> secure_{[this](auto...) { return securingError_; }};
};

TEST_F(ActionsTest, AreNumbered) {
    EXPECT_EQ(ActionStop, 1U);
    EXPECT_EQ(ActionConfigure, 4U);
    EXPECT_EQ(ActionStart, 8U);
    EXPECT_EQ(ActionDisable, 16U);
}

// The first argument, and its choice if the registry has RegistryActions.
struct Choice {
    const char* name;
    std::wstring argument;
    std::uint32_t actions;
};

constexpr std::uint32_t RegistryActions = 0x40;

void PrintTo(const Choice& choice, std::ostream* out) {
    *out << choice.name;
}

class ActionsOfAnArgument : public ActionsTest, public testing::WithParamInterface<Choice> {};

TEST_P(ActionsOfAnArgument, AreThoseOfTheOptionOrTheRegistrys) {
    SetRegistry(RegistryActions);
    EXPECT_EQ(Choose({GetParam().argument}), GetParam().actions);
}

TEST_P(ActionsOfAnArgument, IgnoreFurtherArguments) {
    SetRegistry(RegistryActions);
    for (const wchar_t* second : {L"/STOP", L"/DISABLE", L"/?", L"x"}) {
        EXPECT_EQ(Choose({GetParam().argument, second, L"/START"}), GetParam().actions);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Options, ActionsOfAnArgument,
    testing::Values(Choice{"Stop", L"/STOP", 1}, Choice{"StopLower", L"/stop", 1},
                    Choice{"StopMixed", L"/Stop", 1}, Choice{"Configure", L"/CONFIGURE", 4},
                    Choice{"ConfigureLower", L"/configure", 4},
                    Choice{"ConfigureMixed", L"/cOnFiGuRe", 4}, Choice{"Start", L"/START", 8},
                    Choice{"StartLower", L"/start", 8}, Choice{"StartMixed", L"/StArT", 8},
                    Choice{"Disable", L"/DISABLE", 16}, Choice{"DisableLower", L"/disable", 16},
                    Choice{"DisableMixed", L"/Disable", 16}),
    testing::PrintToStringParamName());

INSTANTIATE_TEST_SUITE_P(
    NoOptions, ActionsOfAnArgument,
    testing::Values(
        Choice{"Empty", L"", RegistryActions}, Choice{"Unknown", L"/FOO", RegistryActions},
        Choice{"TooLong", L"/STOPX", RegistryActions}, Choice{"TooShort", L"/STO", RegistryActions},
        Choice{"JustTheSlash", L"/", RegistryActions}, Choice{"Dash", L"-STOP", RegistryActions},
        Choice{"NoSlash", L"STOP", RegistryActions},
        Choice{"BlankBehind", L"/STOP ", RegistryActions},
        Choice{"BlankBefore", L" /STOP", RegistryActions},
        Choice{"BlankInside", L"/ST OP", RegistryActions},
        Choice{"TwoInOne", L"/STOP /START", RegistryActions},
        Choice{"UsageAndBlank", L"/? ", RegistryActions},
        Choice{"UsageAndMore", L"/??", RegistryActions},
        Choice{"QuestionMark", L"?", RegistryActions}, Choice{"Help", L"/HELP", RegistryActions},
        // Elsewhere, but not in the "C" locale, the capital of U+017F is S.
        Choice{"LongS", L"/\u017Ftop", RegistryActions},
        Choice{"VeryLong", std::wstring(30'000, L'/'), RegistryActions}),
    testing::PrintToStringParamName());

TEST_F(ActionsTest, AreTheRegistrysWithoutAnArgument) {
    for (const std::uint32_t actions : {0U, 2U, 16U, 255U, 0xFFFF'FFFFU}) {
        SetRegistry(actions);
        EXPECT_EQ(Choose({}), actions);
        EXPECT_EQ(Choose({L"/FOO"}), actions);
        EXPECT_EQ(ChooseActions(0, nullptr), actions);
    }
}

TEST_F(ActionsTest, AreStopConfigureAndStartWithoutAKeyOrValue) {
    EXPECT_EQ(Choose({}), 15U);  // 2 has no meaning
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FinasetActions", DwordValue(16));
    EXPECT_EQ(Choose({}), 15U);
    EXPECT_EQ(Choose({L"/FOO"}), 15U);
}

TEST_F(ActionsTest, AreTheDefaultsForAValueThatIsNotA32BitNumber) {
    const RegistryValue values[] = {
        {REG_SZ, {'1', 0, 0, 0}},
        {REG_BINARY, {16, 0, 0, 0}},
        {REG_QWORD, {16, 0, 0, 0, 0, 0, 0, 0}},
        {REG_DWORD_BIG_ENDIAN, {0, 0, 0, 16}},
        {REG_NONE, {16, 0, 0, 0}},
    };
    for (const RegistryValue& value : values) {
        SCOPED_TRACE(value.type);
        SetRegistry(value);
        EXPECT_EQ(Choose({}), 15U);
    }
}

TEST_F(ActionsTest, AreReadFromTheServicesParameters) {
    test::CallLog calls;
    ImportHook<&::RegOpenKeyExW> open([&](HKEY root, LPCWSTR path, auto... more) {
        calls.Add("RegOpenKeyExW", root == HKEY_LOCAL_MACHINE ? "HKLM" : "other", path);
        return open.Forward(root, path, more...);
    });
    ImportHook<&::RegQueryValueExW> query([&](HKEY key, LPCWSTR name, auto... more) {
        calls.Add("RegQueryValueExW", name);
        return query.Forward(key, name, more...);
    });
    SetRegistry(16);
    EXPECT_EQ(Choose({}), 16U);
    EXPECT_THAT(calls.Lines(),
                ElementsAre("RegOpenKeyExW(HKLM, " + test::Narrow(ParametersKey) + ")",
                            "RegQueryValueExW(FinasetAction)"));
}

TEST_F(ActionsTest, AreNoneForTheUsageText) {
    SetRegistry(255);
    const Arguments arguments({L"/?"});
    std::uint32_t chosen = 255;
    EXPECT_EQ(Printed([&] { chosen = ChooseActions(arguments.Count(), arguments.Vector()); }),
              UsageText());
    EXPECT_EQ(chosen, 0U);
}

TEST_F(ActionsTest, AreExplainedUnderTheNameThatTheProgramWasCalledBy) {
    const wchar_t* const arguments[] = {L"D:\\another name.exe", L"/?"};
    EXPECT_THAT(Printed([&] { ChooseActions(2, arguments); }),
                testing::StartsWith("\r\nanother name [/<Option>]\r\n"));
}

TEST_F(ActionsTest, RunInOrderInAnyCombination) {
    for (std::uint32_t bits = 0; bits < 16; ++bits) {
        // The four bits that mean something; those between them are set with every second one.
        const std::uint32_t actions =
            (bits & 1) | (bits & 0xE) << 1 | (bits & 1 ? 0xFFFF'FFE2U : 0U);
        SCOPED_TRACE(actions);
        SetRegistry(actions);
        EXPECT_EQ(LogOfRun({}), LogOf(actions));
    }
}

TEST_F(ActionsTest, RunForEachOption) {
    SetRegistry(0);
    EXPECT_EQ(LogOfRun({L"/stop"}), LogOf(1));
    EXPECT_EQ(LogOfRun({L"/configure"}), LogOf(4));
    EXPECT_EQ(LogOfRun({L"/start"}), LogOf(8));
    EXPECT_EQ(LogOfRun({L"/disable"}), LogOf(16));
    EXPECT_EQ(LogOfRun({L"/FOO"}), LogOf(0));
}

TEST_F(ActionsTest, RunByDefaultWithoutDisabling) {
    EXPECT_EQ(LogOfRun({}), LogOf(1 | 4 | 8));
}

TEST_F(ActionsTest, RunAllFor255) {
    SetRegistry(255);
    EXPECT_EQ(LogOfRun({}), LogOf(1 | 4 | 8 | 16));
}

TEST_F(ActionsTest, NeitherStartNorDisableWhatCouldNotBeSecured) {
    test::FakeProcesses processes;
    processes.ownPath.clear();
    const test::FakeEventLog events;
    Course insecure = WithoutProduct(4);
    insecure.verdicts.emplace_back("Setting DACLs", Bad);
    insecure.programDirectory.clear();
    securingError_ = ERROR_ACCESS_DENIED;
    for (const std::uint32_t actions : {4U | 8U | 16U, 4U | 8U, 4U | 16U, 4U}) {
        SetRegistry(actions);
        EXPECT_EQ(LogOfRun({}), test::LogOf(insecure));
    }
    for (const std::uint32_t actions : {8U | 16U, 8U, 16U}) {  // nothing had to be secured
        SetRegistry(actions);
        EXPECT_EQ(LogOfRun({}), LogOf(actions));
    }
}

TEST_F(ActionsTest, DoNotRunForTheUsageText) {
    SetRegistry(255);
    EXPECT_EQ(LogOfRun({L"/?"}), LogBegin + UsageText() + LogEnd);
}

// A run of all steps in which a platform call runs out of memory.
class ActionsWithoutMemory : public ActionsTest {
protected:
    // Runs, and expects this log, in which items end differently.
    static void ExpectRun(const Verdicts& verdicts) {
        SetRegistry(255);
        Course course = WithoutProduct(255);
        course.verdicts.insert(course.verdicts.end(), verdicts.begin(), verdicts.end());
        EXPECT_EQ(LogOfRun({}), test::LogOf(course));
    }

    const Verdicts noService = {{"Stopping ", Cut},
                                {"Stopping Application ", Absent},
                                {"Starting ", Cut},
                                {"Starting Application ", Bad},
                                {"Disabling ", Cut}};
};

TEST_F(ActionsWithoutMemory, GoOnWithTheNextServiceAndTheNextStep) {
    ImportHook<&::OpenSCManagerW> connect([](auto...) -> SC_HANDLE { throw std::bad_alloc(); });
    ExpectRun(noService);
}

TEST_F(ActionsWithoutMemory, GoOnAfterTheApplications) {
    ImportHook<&::K32EnumProcesses> enumerate([](auto...) -> BOOL { throw std::bad_alloc(); });
    ImportHook<&::CreateProcessW> launch([](auto...) -> BOOL { throw std::bad_alloc(); });
    ExpectRun({{"Stopping Application ", Cut}, {"Starting Application ", Cut}});
}

// Wherever it is: before securing, in it, and after it.
TEST_F(ActionsWithoutMemory, EndTheConfigureActionAndNeitherStartNorDisableAnything) {
    {
        ImportHook<&::RegDeleteValueW> remove([](auto...) -> LSTATUS { throw std::bad_alloc(); });
        ExpectRun({{"\\ConfigFileDirectory=", Cut}});
    }
    {
        ImportHook<&::SetNamedSecurityInfoW> secure(
            [](auto...) -> DWORD { throw std::bad_alloc(); });
        ExpectRun({{"Setting DACLs ", Cut}});
    }
    {
        ImportHook<&::CoCreateInstance> create([](auto...) -> HRESULT { throw std::bad_alloc(); });
        ExpectRun({{"Creating Task ", Cut}});
    }
}

TEST_F(ActionsWithoutMemory, DoNothingIfTheActionsCannotBeChosen) {
    ImportHook<&::RegQueryValueExW> query([](auto...) -> LSTATUS { throw std::bad_alloc(); });
    SetRegistry(255);
    EXPECT_EQ(LogOfRun({}), "\r\nFIRST RUN - START\r\n\r\n\r\n\r\nFIRST RUN - FINISHED\r\n");
}

// Not only out of memory: a text that exceeds the maximum length is another exception.
TEST_F(ActionsWithoutMemory, GoOnWithTheNextServiceWhateverTheStandardLibraryThrows) {
    ImportHook<&::OpenSCManagerW> connect(
        [](auto...) -> SC_HANDLE { throw std::length_error("too long"); });
    ExpectRun(noService);
}

// Each allocation of a run fails in turn, until a run completes without failures.
TEST_F(ActionsTest, EndWithTheFinishBannerWhicheverAllocationFails) {
    const ImportHook<&::OpenSCManagerW> connect([](auto...) { return nullptr; });
    const ImportHook<&::K32EnumProcesses> enumerate([](DWORD*, DWORD, DWORD* bytes) {
        *bytes = 0;
        return TRUE;
    });
    const ImportHook<&::CreateProcessW> launch([](auto...) { return FALSE; });
    const Arguments arguments({L"/all"});
    SetRegistry(255);
    bool failed = true;
    std::size_t before = 0;
    for (; failed; ++before) {
        SCOPED_TRACE(before);
        const std::string log = Printed([&] {
            const test::FailingAllocation failing(before);
            RunActions(arguments.Count(), arguments.Vector());
            failed = failing.Failed();
        });
        EXPECT_THAT(log, testing::StartsWith(LogBegin));
        EXPECT_THAT(log, testing::EndsWith(LogEnd));
        const auto has = [&](const char* text) { return log.find(text) != std::string::npos; };
        const bool stops = has("\r\nStopping Processes");
        const bool configures = has("\r\nSetting Up");
        const bool starts = has("\r\nStarting Processes");
        const bool disables = has("\r\nDisabling Processes");
        // It cost one step at the most, or all if it could not be told what to do, or also those
        // that need a configured machine.
        EXPECT_TRUE((stops && configures) || (stops && !starts && !disables) ||
                    (configures && starts && disables) || log == LogBegin + LogEnd)
            << log;
        EXPECT_TRUE((!starts && !disables) || has("\r\nWrite Registry Settings")) << log;
    }
    EXPECT_GT(before, 100U);
}

// A walk over a list: its output for an empty one, and the kind that it skips.
struct Walk {
    void (*run)(std::span<const ProcessEntry> entries);
    const char* banner;
    EntryKind useless;
};

class EntryWalks : public testing::TestWithParam<Walk> {
protected:
    static std::string RunOver(const std::vector<ProcessEntry>& entries) {
        return Printed([&] { GetParam().run(entries); });
    }
};

TEST_P(EntryWalks, PrintJustTheBannerForAnEmptyList) {
    EXPECT_EQ(RunOver({}), GetParam().banner);
}

TEST_P(EntryWalks, PrintNothingForEntriesTheyHaveNoUseFor) {
    test::FakeServices fake;
    EXPECT_EQ(RunOver({{GetParam().useless, L"App.exe", L"extra"},
                       {EntryKind::Service, L"", L""},
                       {static_cast<EntryKind>(7), L"Odd", L"extra"}}),
              GetParam().banner);
    EXPECT_THAT(fake.calls.Lines(), IsEmpty());
}

TEST_P(EntryWalks, GoOnInOrderAfterAFailure) {
    test::FakeServices fake;
    fake.opens = false;
    RunOver({{EntryKind::Service, L"b", L""},
             {EntryKind::Service, L"", L""},
             {EntryKind::Service, L"a", L""}});
    EXPECT_THAT(fake.calls.Of("OpenServiceW"),
                ElementsAre(testing::HasSubstr(", b, "), testing::HasSubstr(", a, ")));
}

TEST_P(EntryWalks, OpenWithABannerOfThreeWrites) {
    std::vector<std::string> writes;
    const std::string printed = Printed([&] {
        const test::NotedPrints prints(writes);
        GetParam().run({});
    });
    ASSERT_THAT(writes, testing::SizeIs(3));
    EXPECT_EQ(writes[0], "\r\n" + writes[2]);
}

INSTANTIATE_TEST_SUITE_P(All, EntryWalks,
                         testing::Values(Walk{&StopEntries, StopBanner, EntryKind::LaunchApp},
                                         Walk{&StartEntries, StartBanner, EntryKind::QuitApp}),
                         [](const auto& walk) { return walk.index == 0 ? "Stop" : "Start"; });

}  // namespace
