#include "proc/scm.h"

#include "support/fake_services.h"
#include "support/import_hook.h"
#include "support/installed_service.h"

#include <windows.h>

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using test::FakeServices;
using test::InstalledService;
using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;
using Utils::SCM;

constexpr DWORD Stopped = 1;
constexpr DWORD StartPending = 2;
constexpr DWORD Running = 4;
constexpr DWORD Paused = 7;

static_assert(std::has_virtual_destructor_v<SCM>);

TEST(SCM, ConnectsToTheActiveDatabaseOfThisMachineAndCloses) {
    FakeServices fake;
    { const SCM manager; }
    EXPECT_THAT(fake.calls.Lines(),
                ElementsAre("OpenSCManagerW(null, null, 5)", "CloseServiceHandle(manager 1)"));
}

// An operation on the service "Corvo", the access that it requests, and its calls.
struct Operation {
    const char* name;
    std::function<bool(const SCM&)> run;
    DWORD access;
    const char* call;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

class ScmOperations : public testing::TestWithParam<Operation> {
protected:
    bool Run() const {
        const SCM manager;
        return GetParam().run(manager);
    }
    static std::string OpenLine() {
        return "OpenServiceW(manager 1, Corvo, " + std::to_string(GetParam().access) + ")";
    }

    FakeServices fake;
};

TEST_P(ScmOperations, OpensTheServiceWithItsOwnAccessCallsOnceAndClosesServiceThenManager) {
    fake.states = {Running};
    EXPECT_TRUE(Run());
    EXPECT_THAT(fake.calls.Lines(),
                ElementsAre("OpenSCManagerW(null, null, 5)", OpenLine(), GetParam().call,
                            "CloseServiceHandle(service 1)", "CloseServiceHandle(manager 1)"));
}

TEST_P(ScmOperations, CallsNothingWithoutAManager) {
    fake.connects = false;
    EXPECT_FALSE(Run());
    EXPECT_THAT(fake.calls.Lines(), ElementsAre("OpenSCManagerW(null, null, 5)"));
}

TEST_P(ScmOperations, CallsNothingMoreIfTheServiceCannotBeOpened) {
    fake.opens = false;
    EXPECT_FALSE(Run());
    EXPECT_THAT(fake.calls.Lines(), ElementsAre("OpenSCManagerW(null, null, 5)", OpenLine(),
                                                "CloseServiceHandle(manager 1)"));
}

TEST_P(ScmOperations, FailsWithItsCallAndStillCloses) {
    fake.accepts = false;
    fake.states = {std::nullopt};
    EXPECT_FALSE(Run());
    EXPECT_THAT(fake.calls.Lines(), Contains(GetParam().call));
    EXPECT_THAT(fake.calls.Of("CloseServiceHandle"),
                ElementsAre("CloseServiceHandle(service 1)", "CloseServiceHandle(manager 1)"));
}

INSTANTIATE_TEST_SUITE_P(
    All, ScmOperations,
    testing::Values(
        Operation{"RequestStart", [](const SCM& manager) { return manager.RequestStart(L"Corvo"); },
                  0x10, "StartServiceW(service 1, 0, null)"},
        Operation{"RequestStop", [](const SCM& manager) { return manager.RequestStop(L"Corvo"); },
                  0x20, "ControlService(service 1, 1, zeroed)"},
        // 4294967295 is "no change", 4 is "disabled".
        Operation{"SetDisabled", [](const SCM& manager) { return manager.SetDisabled(L"Corvo"); },
                  0x2, "ChangeServiceConfigW(service 1, 4294967295, 4, 4294967295, all null)"},
        Operation{
            "WaitForState",
            [](const SCM& manager) { return manager.WaitForState(L"Corvo", Running, 0, 1000); },
            0x4, "QueryServiceStatus(service 1, zeroed)"}),
    testing::PrintToStringParamName());

// A wait: the states that the polls show (the last one remains), the target and the timeout, and
// the result after how many polls.
struct Wait {
    const char* name;
    std::vector<std::optional<DWORD>> states;
    DWORD target;
    DWORD timeoutMs;
    bool reached;
    std::size_t polls;
};

void PrintTo(const Wait& wait, std::ostream* out) {
    *out << wait.name;
}

class ScmWaits : public testing::TestWithParam<Wait> {};

TEST_P(ScmWaits, PollEvery500MsUntilTheStateOrTheEndOfTheTime) {
    const Wait& wait = GetParam();
    FakeServices fake;
    fake.states = wait.states;
    EXPECT_EQ(SCM().WaitForState(L"Corvo", wait.target, 0, wait.timeoutMs), wait.reached);

    // Each poll but a successful last one is followed by a sleep.
    std::vector<std::string> expected;
    for (std::size_t poll = 1; poll <= wait.polls; ++poll) {
        expected.emplace_back("QueryServiceStatus(service 1, zeroed)");
        if (!wait.reached || poll < wait.polls) {
            expected.emplace_back("Sleep(500)");
        }
    }
    const std::vector<std::string>& lines = fake.calls.Lines();
    ASSERT_THAT(lines, SizeIs(expected.size() + 4));
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 2, lines.end() - 2), expected);
}

constexpr std::optional<DWORD> Fails = std::nullopt;

INSTANTIATE_TEST_SUITE_P(
    All, ScmWaits,
    testing::Values(
        Wait{"AStateThatIsThereAlready", {Stopped}, Stopped, 30'000, true, 1},
        Wait{"AStateThatComesAtTheThirdPoll", {3, 3, Stopped}, Stopped, 30'000, true, 3},
        Wait{"AStateThatComesAtTheLastPoll", {2, 2, 2, Running}, Running, 2000, true, 4},
        Wait{"AStateThatComesTooLate", {2, 2, 2, 2, Running}, Running, 2000, false, 4},
        Wait{"ThirtySecondsAreSixtyPolls", {3}, Stopped, 30'000, false, 60},
        Wait{"TenSecondsAreTwentyPolls", {StartPending}, Running, 10'000, false, 20},
        Wait{"ABrokenIntervalIsRoundedUp", {StartPending}, Running, 1001, false, 3},
        Wait{"NoTimeAtAllIsOnePoll", {StartPending}, Running, 0, false, 1},
        Wait{"NoTimeAtAllIsEnoughForAStateThatIsThere", {Running}, Running, 0, true, 1},
        Wait{"PausedIsNotRunning", {Paused}, Running, 10'000, false, 20},
        Wait{"PausedIsNotStopped", {Paused}, Stopped, 30'000, false, 60},
        Wait{"PendingIsNotTheState", {5, 6, 3, 2}, Running, 10'000, false, 20},
        Wait{"ItDiesBeforeItRuns", {StartPending, Stopped}, Running, 10'000, false, 20},
        Wait{"EveryPollFails", {Fails}, Running, 10'000, false, 20},
        Wait{"AFailedPollIsFollowedByAGoodOne", {Fails, Fails, Running}, Running, 10'000, true, 3},
        Wait{"AFailedPollKeepsTheStateBefore", {StartPending, Fails}, Running, 10'000, false, 20},
        Wait{"AFailedPollIsStateZero", {Fails}, 0, 10'000, true, 1},
        Wait{"AFailedPollDoesNotGoBackToZero", {StartPending, Fails}, 0, 10'000, false, 20}),
    testing::PrintToStringParamName());

TEST(SCM, IgnoresTheReservedArgumentOfAWait) {
    FakeServices fake;
    fake.states = {StartPending};
    EXPECT_FALSE(SCM().WaitForState(L"Corvo", Running, 0xFFFF'FFFF'FFFF'FFFF, 10'000));
    EXPECT_THAT(fake.clock.Sleeps(), SizeIs(20));
}

TEST(SCM, BoundsAWaitByTimeAndNotByTheNumberOfPolls) {
    FakeServices fake;
    fake.states = {StartPending};
    fake.onPoll = [&] { fake.clock.Advance(500); };  // a manager that answers slowly
    EXPECT_FALSE(SCM().WaitForState(L"Corvo", Running, 0, 10'000));
    EXPECT_THAT(fake.clock.Sleeps(), SizeIs(10));
}

TEST(SCM, CountsTheTimeOfAWaitFromWhenTheServiceIsOpen) {
    FakeServices fake;
    fake.states = {StartPending};
    fake.onConnect = fake.onOpen = [&] { fake.clock.Advance(60'000); };
    EXPECT_FALSE(SCM().WaitForState(L"Corvo", Running, 0, 10'000));
    EXPECT_THAT(fake.clock.Sleeps(), SizeIs(20));
}

TEST(SCM, GivesUpAfterASleepThatTookTooLong) {
    FakeServices fake;
    fake.states = {StartPending, Running};
    test::ImportHook<&::Sleep> sleep([&](DWORD milliseconds) {
        sleep.Forward(milliseconds);
        fake.clock.Advance(30'000);
    });
    EXPECT_FALSE(SCM().WaitForState(L"Corvo", Running, 0, 30'000));
    EXPECT_THAT(fake.clock.Sleeps(), ElementsAre(500));
}

// The elapsed time is truncated to 32 bits: a machine that hibernates for 49.7 days is forgiven.
TEST(SCM, IgnoresOverflowsOfA32BitCounter) {
    FakeServices fake;
    fake.states = {StartPending};
    bool turned = false;
    test::ImportHook<&::Sleep> sleep([&](DWORD milliseconds) {
        sleep.Forward(milliseconds);
        if (!std::exchange(turned, true)) {
            fake.clock.Advance(0xFFFF'FFFF);
            fake.clock.Advance(1);
        }
    });
    EXPECT_FALSE(SCM().WaitForState(L"Corvo", Running, 0, 30'000));
    EXPECT_THAT(fake.clock.Sleeps(), SizeIs(60));
}

// With the real service manager, polled every few milliseconds.
class RealServices : public testing::Test {
protected:
    static constexpr wchar_t Name[] = L"Finaset test service";

private:
    test::ImportHook<&::Sleep> sleep_{[this](DWORD) { sleep_.Forward(5); }};
};

TEST_F(RealServices, AreStartedAndStopped) {
    const InstalledService service(Name, L"--start-pending=20 --stop-pending=20");
    EXPECT_TRUE(SCM().RequestStart(Name));
    EXPECT_TRUE(SCM().WaitForState(Name, SERVICE_RUNNING, 0, 5000));
    EXPECT_TRUE(SCM().RequestStop(Name));
    EXPECT_TRUE(SCM().WaitForState(Name, SERVICE_STOPPED, 0, 5000));
}

TEST_F(RealServices, RefuseASecondStartAndASecondStop) {
    const InstalledService service(Name);
    EXPECT_FALSE(SCM().RequestStop(Name));
    service.Start();
    EXPECT_FALSE(SCM().RequestStart(Name));
    EXPECT_EQ(service.State(), Running);
}

TEST_F(RealServices, ThatDoNotAcceptAStopKeepRunning) {
    const InstalledService service(Name, L"--refuses-stop");
    service.Start();
    EXPECT_FALSE(SCM().RequestStop(Name));
    EXPECT_EQ(service.State(), Running);
}

TEST_F(RealServices, ThatNeverStopAreGivenUp) {
    const InstalledService service(Name, L"--never-stops");
    service.Start();
    EXPECT_TRUE(SCM().RequestStop(Name));
    EXPECT_FALSE(SCM().WaitForState(Name, SERVICE_STOPPED, 0, 50));
    EXPECT_EQ(service.State(), static_cast<DWORD>(SERVICE_STOP_PENDING));
}

TEST_F(RealServices, ThatDieOnStartAreNeverSeenRunning) {
    const InstalledService service(Name, L"--start-pending=20 --dies-on-start");
    EXPECT_TRUE(SCM().RequestStart(Name));
    EXPECT_FALSE(SCM().WaitForState(Name, SERVICE_RUNNING, 0, 200));
    EXPECT_EQ(service.State(), Stopped);
}

TEST_F(RealServices, AreDisabledWithTheRestOfTheirConfigurationAsItWas) {
    const InstalledService service(Name);
    service.Start();
    test::ServiceDescription expected = service.Describe();
    ASSERT_NE(expected.startType, static_cast<DWORD>(SERVICE_DISABLED));
    expected.startType = SERVICE_DISABLED;
    EXPECT_TRUE(SCM().SetDisabled(Name));
    EXPECT_EQ(service.Describe(), expected);  // including that it keeps running
}

TEST_F(RealServices, ThatAreNotInstalledFailEachOperation) {
    EXPECT_FALSE(SCM().RequestStart(Name));
    EXPECT_FALSE(SCM().RequestStop(Name));
    EXPECT_FALSE(SCM().SetDisabled(Name));
    EXPECT_FALSE(SCM().WaitForState(Name, SERVICE_STOPPED, 0, 5000));
}

TEST_F(RealServices, ThatAreDisabledCannotBeStarted) {
    const InstalledService service(Name, L"", SERVICE_DISABLED);
    EXPECT_FALSE(SCM().RequestStart(Name));
    EXPECT_EQ(service.State(), Stopped);
}

}  // namespace
