#include "proc/services.h"

#include "proc/process_lists.h"
#include "support/console_capture.h"
#include "support/fake_processes.h"
#include "support/fake_services.h"
#include "support/installed_service.h"
#include "support/noted_steps.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using test::FakeServices;
using test::Printed;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr DWORD Stopped = 1;
constexpr DWORD StartPending = 2;
constexpr DWORD StopPending = 3;
constexpr DWORD Running = 4;

const ProcessEntry Corvo = {EntryKind::Service, L"Corvo", L""};

// A step that brings a service into another state, with what differs between the steps.
struct Step {
    const char* name;
    bool (*run)(const ProcessEntry& entry);
    const char* item;
    const char* openForRequest;
    const char* request;
    DWORD target;
    DWORD other;
    std::size_t polls;
    const char* done;
    const char* failed;
};

const Step Stop = {
    .name = "StopEntry",
    .run = &StopEntry,
    .item = "Stopping Corvo....",
    .openForRequest = "OpenServiceW(manager 1, Corvo, 32)",
    .request = "ControlService(service 1, 1, zeroed)",
    .target = Stopped,
    .other = StopPending,
    .polls = 60,  // in 30 s
    .done = "stopped\r\n",
    .failed = "stop failed!\r\n",
};

const Step Start = {
    .name = "StartEntry",
    .run = &StartEntry,
    .item = "Starting Corvo....",
    .openForRequest = "OpenServiceW(manager 1, Corvo, 16)",
    .request = "StartServiceW(service 1, 0, null)",
    .target = Running,
    .other = StartPending,
    .polls = 20,  // in 10 s
    .done = "started\r\n",
    .failed = "start failed!\r\n",
};

void PrintTo(const Step& step, std::ostream* out) {
    *out << step.name;
}

class ServiceSteps : public testing::TestWithParam<Step> {
protected:
    // Runs the step, and returns what it printed.
    std::string Run() {
        return Printed([this] {
            const test::NotedPrints prints(fake.calls);
            result = GetParam().run(Corvo);
        });
    }

    FakeServices fake;
    bool result = false;
};

TEST_P(ServiceSteps, RequestAndWaitOverAConnectionEachAndOneAfterTheOther) {
    const Step& step = GetParam();
    fake.states = {step.target};
    Run();
    EXPECT_THAT(
        fake.calls.Lines(),
        ElementsAre(std::string("print(") + step.item + ")", "OpenSCManagerW(null, null, 5)",
                    step.openForRequest, step.request, "CloseServiceHandle(service 1)",
                    "CloseServiceHandle(manager 1)", "OpenSCManagerW(null, null, 5)",
                    "OpenServiceW(manager 2, Corvo, 4)", "QueryServiceStatus(service 2, zeroed)",
                    "CloseServiceHandle(service 2)", "CloseServiceHandle(manager 2)",
                    std::string("print(") + step.done + ")"));
}

TEST_P(ServiceSteps, PrintOneLineForAServiceThatReachesTheState) {
    fake.states = {GetParam().other, GetParam().other, GetParam().target};
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().done);
    EXPECT_TRUE(result);
    EXPECT_THAT(fake.clock.Sleeps(), ElementsAre(500, 500));
}

TEST_P(ServiceSteps, FailAtTheEndOfTheTimeForAServiceThatDoesNotReachTheState) {
    fake.states = {GetParam().other};
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().failed);
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.clock.Sleeps(), AllOf(SizeIs(GetParam().polls), Each(500)));
}

TEST_P(ServiceSteps, FailForAServiceThatIsInTheOtherStepsState) {
    fake.states = {GetParam().target == Running ? Stopped : Running};
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().failed);
}

TEST_P(ServiceSteps, FailWhenEveryPollFails) {
    fake.states = {std::nullopt};
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().failed);
    EXPECT_THAT(fake.clock.Sleeps(), SizeIs(GetParam().polls));
}

TEST_P(ServiceSteps, DoNotWaitForAServiceThatRefuses) {
    fake.accepts = false;
    fake.states = {GetParam().target};
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().failed);
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.calls.Of("OpenSCManagerW"), SizeIs(1));
    EXPECT_THAT(fake.calls.Of("QueryServiceStatus"), IsEmpty());
    EXPECT_THAT(fake.clock.Sleeps(), IsEmpty());
}

TEST_P(ServiceSteps, DoNotWaitForAMissingService) {
    fake.opens = false;
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().failed);
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.calls.Of("OpenSCManagerW"), SizeIs(1));
    EXPECT_THAT(fake.clock.Sleeps(), IsEmpty());
}

TEST_P(ServiceSteps, FailWithoutAConnection) {
    fake.connects = false;
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().failed);
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.calls.Of("OpenSCManagerW"), SizeIs(1));
}

TEST_P(ServiceSteps, FailWhenTheSecondConnectionFails) {
    fake.states = {GetParam().target};
    fake.onConnect = [this] { fake.connects = fake.calls.Of("OpenSCManagerW").size() < 2; };
    EXPECT_EQ(Run(), std::string(GetParam().item) + GetParam().failed);
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.clock.Sleeps(), IsEmpty());
}

TEST_P(ServiceSteps, SkipAnEntryWithoutANameOrOfAnotherKind) {
    const test::FakeProcesses processes;
    const EntryKind other =
        GetParam().run == &StopEntry ? EntryKind::LaunchApp : EntryKind::QuitApp;
    for (const ProcessEntry& entry : {ProcessEntry{EntryKind::Service, L"", L"extra"},
                                      ProcessEntry{EntryKind::LaunchApp, L"", L"extra"},
                                      ProcessEntry{EntryKind::QuitApp, L"", L"extra"},
                                      ProcessEntry{other, L"App.exe", L"extra"},
                                      ProcessEntry{static_cast<EntryKind>(7), L"App", L"extra"},
                                      ProcessEntry{static_cast<EntryKind>(-1), L"App", L"extra"}}) {
        SCOPED_TRACE(static_cast<int>(entry.kind));
        bool done = true;
        EXPECT_EQ(Printed([&] { done = GetParam().run(entry); }), "");
        EXPECT_FALSE(done);
    }
    EXPECT_THAT(fake.calls.Lines(), IsEmpty());
    EXPECT_THAT(processes.calls.Lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, ServiceSteps, testing::Values(Stop, Start),
                         testing::PrintToStringParamName());

TEST(StopEntry, AsksAnApplicationToQuit) {
    test::FakeProcesses processes;
    processes.running = {{.id = 7, .path = L"C:\\App\\ZEFIR.exe"}};
    for (const bool quits : {true, false}) {
        processes.launches = quits;
        bool result = !quits;
        EXPECT_EQ(Printed([&] {
                      result = StopEntry({EntryKind::QuitApp, L"ZEFIR.exe", L"The Title"});
                  }),
                  std::string("Stopping Application ZEFIR.exe....with Window Title The Title "
                              " Process Quitline.exe Started in context of ZEFIR.exe application "
                              "to send QUIT Message - Success=") +
                      (quits ? "True\r\n" : "False\r\n"));
        EXPECT_EQ(result, quits);
    }
}

TEST(StartEntry, LaunchesAnApplication) {
    test::FakeProcesses processes;
    for (const bool launches : {true, false}) {
        processes.launches = launches;
        bool result = !launches;
        EXPECT_EQ(Printed([&] {
                      result = StartEntry({EntryKind::LaunchApp, L"BriskoLU.exe", L"-u"});
                  }),
                  std::string("Starting Application BriskoLU.exe with command line -u....") +
                      (launches ? "started\r\n" : "start failed!\r\n"));
        EXPECT_EQ(result, launches);
    }
}

TEST(StopAndStartEntry, MoveARealService) {
    const test::InstalledService service(L"Finaset test service");
    test::ImportHook<&::Sleep> shortSleep([&](DWORD) { shortSleep.Forward(5); });
    const ProcessEntry entry = {EntryKind::Service, service.Name(), L""};
    EXPECT_EQ(Printed([&] { StopEntry(entry); }),
              "Stopping Finaset test service....stop failed!\r\n");
    EXPECT_EQ(Printed([&] { StartEntry(entry); }), "Starting Finaset test service....started\r\n");
    EXPECT_EQ(service.State(), Running);
    EXPECT_EQ(Printed([&] { StartEntry(entry); }),
              "Starting Finaset test service....start failed!\r\n");
    EXPECT_EQ(Printed([&] { StopEntry(entry); }), "Stopping Finaset test service....stopped\r\n");
    EXPECT_EQ(service.State(), Stopped);
}

constexpr char DisableBanner[] =
    "\r\n------------------------\r\nDisabling Processes....\r\n------------------------\r\n";

TEST(DisableServices, PrintsJustItsBannerForAnEmptyList) {
    bool result = false;
    EXPECT_EQ(Printed([&] { result = DisableServices({}); }), DisableBanner);
    EXPECT_TRUE(result);
}

TEST(DisableServices, WalksItsListInOrderWithAConnectionForEachService) {
    FakeServices fake;
    const std::vector<ProcessEntry> entries = {{EntryKind::Service, L"Corvo", L""},
                                               {EntryKind::Service, L"Ardex", L""}};
    bool result = false;
    EXPECT_EQ(Printed([&] {
                  const test::NotedPrints prints(fake.calls);
                  result = DisableServices(entries);
              }),
              std::string(DisableBanner) +
                  "Disabling Service Corvo....Disabled\r\nDisabling Service Ardex....Disabled\r\n");
    EXPECT_TRUE(result);
    EXPECT_THAT(
        fake.calls.Lines(),
        ElementsAre("print(\r\n------------------------\r\n)", "print(Disabling Processes....\r\n)",
                    "print(------------------------\r\n)",  //
                    "print(Disabling Service Corvo....)", "OpenSCManagerW(null, null, 5)",
                    "OpenServiceW(manager 1, Corvo, 2)",
                    "ChangeServiceConfigW(service 1, 4294967295, 4, 4294967295, all null)",
                    "CloseServiceHandle(service 1)", "CloseServiceHandle(manager 1)",
                    "print(Disabled\r\n)",  //
                    "print(Disabling Service Ardex....)", "OpenSCManagerW(null, null, 5)",
                    "OpenServiceW(manager 2, Ardex, 2)",
                    "ChangeServiceConfigW(service 2, 4294967295, 4, 4294967295, all null)",
                    "CloseServiceHandle(service 2)", "CloseServiceHandle(manager 2)",
                    "print(Disabled\r\n)"));
}

TEST(DisableServices, GoesOnAfterAFailureAndStillSucceeds) {
    const std::vector<ProcessEntry> entries = {{EntryKind::Service, L"Corvo", L""},
                                               {EntryKind::Service, L"Ardex", L""}};
    for (bool FakeServices::*fails :
         {&FakeServices::connects, &FakeServices::opens, &FakeServices::accepts}) {
        FakeServices fake;
        fake.*fails = false;
        bool result = false;
        EXPECT_EQ(Printed([&] { result = DisableServices(entries); }),
                  std::string(DisableBanner) +
                      "Disabling Service Corvo....Disable  failed!\r\n"
                      "Disabling Service Ardex....Disable  failed!\r\n");
        EXPECT_TRUE(result);
        EXPECT_THAT(fake.calls.Of("OpenSCManagerW"), SizeIs(2));
    }
}

TEST(DisableServices, SkipsWhateverIsNoServiceOrHasNoName) {
    FakeServices fake;
    const std::vector<ProcessEntry> entries = {{EntryKind::LaunchApp, L"BriskoLU.exe", L"-u"},
                                               {EntryKind::Service, L"", L""},
                                               {EntryKind::QuitApp, L"ZEFIR.exe", L"Title"},
                                               {static_cast<EntryKind>(7), L"Odd", L""},
                                               {EntryKind::Service, L"Ardex", L""}};
    EXPECT_EQ(Printed([&] { DisableServices(entries); }),
              std::string(DisableBanner) + "Disabling Service Ardex....Disabled\r\n");
    EXPECT_THAT(fake.calls.Of("OpenServiceW"), ElementsAre("OpenServiceW(manager 1, Ardex, 2)"));
}

TEST(DisableServices, TakesTheProductsListByItself) {
    FakeServices fake;
    std::string printed = DisableBanner;
    for (const ProcessEntry& entry : DisableList) {
        printed += "Disabling Service " + test::Narrow(entry.name) + "....Disabled\r\n";
    }
    EXPECT_EQ(Printed([] { DisableServices(); }), printed);
    EXPECT_THAT(fake.calls.Of("ChangeServiceConfigW"), SizeIs(DisableList.size()));
}

TEST(DisableServices, LeavesARunningServiceRunning) {
    // Under a name from the product's list that the machine does not have.
    const test::InstalledService service(L"Ardex");
    service.Start();
    EXPECT_THAT(Printed([] { DisableServices(); }),
                testing::HasSubstr("\r\nDisabling Service Ardex....Disabled\r\n"));
    EXPECT_EQ(service.State(), Running);
    EXPECT_EQ(service.Describe().startType, static_cast<DWORD>(SERVICE_DISABLED));
}

}  // namespace
