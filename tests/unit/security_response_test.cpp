#include "fs/security_response.h"

#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/fake_event_log.h"
#include "support/fake_processes.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/installed_service.h"
#include "support/noted_steps.h"
#include "support/temporary_directory.h"
#include "support/virtual_clock.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

namespace {

using test::Narrow;
using test::Printed;
using testing::ElementsAre;
using testing::IsEmpty;

// An entry in the event log: no severity, category 1, number 16, with one text.
std::string Entry(const std::string& text) {
    return "ReportEventW(source, 0, 1, 16, null, 1, 0, " + text + ", null)";
}

std::string Registration(const std::string& source) {
    return "RegisterEventSourceW(null, " + source + ")";
}

constexpr char Deregistration[] = "DeregisterEventSource(source)";

TEST(ReportEventLogEntry, WritesOneTextUnderItsSource) {
    const test::FakeEventLog log;
    EXPECT_TRUE(ReportEventLogEntry(L"the message", L"The Source"));
    EXPECT_THAT(log.calls.Lines(),
                ElementsAre(Registration("The Source"), Entry("the message"), Deregistration));
}

TEST(ReportEventLogEntry, FailsWithoutASource) {
    test::FakeEventLog log;
    log.registers = false;
    EXPECT_FALSE(ReportEventLogEntry(L"the message", L"The Source"));
    EXPECT_THAT(log.calls.Lines(), ElementsAre(Registration("The Source")));
}

TEST(ReportEventLogEntry, FailsWithTheReportAndReleasesTheSource) {
    test::FakeEventLog log;
    log.reports = false;
    EXPECT_FALSE(ReportEventLogEntry(L"the message", L"The Source"));
    EXPECT_THAT(log.calls.Lines(),
                ElementsAre(Registration("The Source"), Entry("the message"), Deregistration));
}

TEST(ReportEventLogEntry, WritesToTheRealLog) {
    EXPECT_TRUE(ReportEventLogEntry(L"a message of the tests", L"FinasetTests"));
}

// This program is in a directory of its own, with the uninstall program beside it.
class SecurityResponseTest : public testing::Test {
protected:
    SecurityResponseTest() {
        test::PutFile(program_, "");
        processes.ownPath = directory_ / L"a b\\Finaset.exe";
    }

    void RemoveProgram() const { ::DeleteFileW(program_.c_str()); }

    [[nodiscard]] std::string Program() const { return Narrow(program_); }
    [[nodiscard]] std::string MissingLine() const {
        return "First Run - " + Program() + "  DOES NOT EXIST\r\n";
    }
    [[nodiscard]] std::string StartingLine() const {
        return "First Run - Starting " + Program() + " Process\r\n";
    }
    [[nodiscard]] std::string EndedLine(const char* verdict) const {
        return "First Run - Process " + Program() + " Ended (" + verdict + ")\r\n";
    }
    [[nodiscard]] std::string StartingEntry() const {
        return Entry("First Run - Starting" + Program() + "Process");
    }
    [[nodiscard]] std::string Launch() const {
        return "CreateProcessW(no token, null, " + Program() +
               " , 1, 0, all null, startup all zero)";
    }

    // The result; expects this output.
    static bool Uninstall(const std::string& expectedLog) {
        bool ended = false;
        EXPECT_EQ(Printed([&] { ended = RunUninstallProgram(); }), expectedLog);
        return ended;
    }

    // Responds, and returns the output.
    static std::string Respond(const std::wstring& text = L"The reason") {
        std::wstring reason = text;
        std::string log = Printed([&] { RespondToSecurityFailure(reason); });
        EXPECT_EQ(reason, L"");
        return log;
    }

    test::FakeProcesses processes;
    test::FakeEventLog events;

private:
    test::TemporaryDirectory directory_;
    std::wstring program_ = directory_ / L"a b\\Unfinaset.exe";
};

class RunUninstallProgramTest : public SecurityResponseTest {};

TEST_F(RunUninstallProgramTest, FailsSilentlyIfItsOwnDirectoryIsUnknown) {
    for (const wchar_t* path : {L"", L"Finaset.exe"}) {
        processes.ownPath = path;
        EXPECT_FALSE(Uninstall(""));
    }
    EXPECT_THAT(processes.calls.Of("CreateProcessW"), IsEmpty());
    EXPECT_THAT(events.calls.Lines(), IsEmpty());
}

TEST_F(RunUninstallProgramTest, SaysThatTheProgramIsMissing) {
    RemoveProgram();
    EXPECT_FALSE(Uninstall(MissingLine()));
    EXPECT_THAT(processes.calls.Of("CreateProcessW"), IsEmpty());
    EXPECT_THAT(events.calls.Lines(), IsEmpty());
}

TEST_F(RunUninstallProgramTest, RunsTheProgramBesideThisOneAndWaitsAMinute) {
    EXPECT_TRUE(Uninstall(StartingLine() + EndedLine("True")));
    EXPECT_THAT(processes.calls.Lines(),
                testing::AllOf(testing::Contains(Launch()),
                               testing::Contains("WaitForSingleObject(new process, 60000)")));
    EXPECT_THAT(processes.calls.Of("CreateProcessW"), testing::SizeIs(1));
    EXPECT_THAT(processes.calls.Of("WaitForSingleObject"), testing::SizeIs(1));
    EXPECT_TRUE(processes.AllClosed());
    EXPECT_THAT(events.calls.Lines(), ElementsAre(Registration("Tarsel Nimbus Network Service"),
                                                  StartingEntry(), Deregistration));
}

TEST_F(RunUninstallProgramTest, ReturnsWhetherTheProgramEndedInTime) {
    const struct {
        DWORD waitResult;
        bool ended;
    } rows[] = {
        {WAIT_OBJECT_0, true}, {WAIT_TIMEOUT, false}, {WAIT_FAILED, true}, {WAIT_ABANDONED, true}};
    for (const auto& [waitResult, ended] : rows) {
        processes.waitResult = waitResult;
        EXPECT_EQ(Uninstall(StartingLine() + EndedLine(ended ? "True" : "False")), ended);
        EXPECT_TRUE(processes.AllClosed());
    }
}

TEST_F(RunUninstallProgramTest, SaysThatTheProgramEndedEvenIfItDidNotStart) {
    processes.launches = false;
    EXPECT_FALSE(Uninstall(StartingLine() + EndedLine("False")));
    EXPECT_THAT(processes.calls.Of("WaitForSingleObject"), IsEmpty());
    EXPECT_THAT(events.calls.Of("ReportEventW"), ElementsAre(StartingEntry()));
}

TEST_F(RunUninstallProgramTest, RunsTheProgramEvenIfNoEntryIsWritten) {
    events.registers = false;
    EXPECT_TRUE(Uninstall(StartingLine() + EndedLine("True")));
}

TEST_F(RunUninstallProgramTest, PrintsAndReportsTheStartBeforeIt) {
    std::vector<std::string> steps;
    Printed([&] {
        const test::NotedPrints prints(steps);
        const test::NotedCalls<&::ReportEventW> report(steps, "report");
        const test::NotedCalls<&::CreateProcessW> create(steps, "start");
        RunUninstallProgram();
    });
    EXPECT_THAT(steps, ElementsAre(StartingLine(), "report", "start", EndedLine("True")));
}

// A real program that keeps running, and no time to wait for it.
TEST(RunUninstallProgram, GivesARealProgramUpAfterAMinuteAndLeavesItRunning) {
    const test::TemporaryDirectory directory;
    const std::wstring program = directory / L"Unfinaset.exe";
    ASSERT_TRUE(::CopyFileW(test::BesideThisProgram(L"stand_in_companion.exe").c_str(),
                            program.c_str(), TRUE));
    const test::ImportHook<&::QueryFullProcessImageNameW> ownPath(
        [&](HANDLE, DWORD, LPWSTR path, PDWORD size) -> BOOL {
            *size = static_cast<DWORD>((directory / L"Finaset.exe").copy(path, *size));
            path[*size] = L'\0';
            return TRUE;
        });
    DWORD id = 0;
    test::ImportHook<&::CreateProcessW> create([&](auto... arguments) {
        const BOOL created = create.Forward(arguments...);
        id = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...))->dwProcessId;
        return created;
    });
    const test::FakeEventLog events;
    std::vector<DWORD> waits;
    bool ended = true;
    const std::string log = Printed([&] {
        const test::VirtualClock clock;
        ended = RunUninstallProgram();
        waits = clock.Waits();
    });
    EXPECT_FALSE(ended);
    EXPECT_EQ(log, "First Run - Starting " + Narrow(program) + " Process\r\nFirst Run - Process " +
                       Narrow(program) + " Ended (False)\r\n");
    EXPECT_THAT(waits, ElementsAre(60'000));

    const HANDLE process = ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id);
    ASSERT_NE(process, nullptr);
    EXPECT_EQ(::WaitForSingleObject(process, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    ::TerminateProcess(process, 0);
    ::WaitForSingleObject(process, INFINITE);
    ::CloseHandle(process);
}

class RespondToSecurityFailureTest : public SecurityResponseTest {
protected:
    static std::string Log(const std::string& uninstalling) {
        return "\r\n--------------------------\r\n"
               "Uninstalling Product.....\r\n"
               "--------------------------\r\n" +
               uninstalling + "The reason - Uninstalling\r\n";
    }
};

TEST_F(RespondToSecurityFailureTest, UninstallsThenRecordsTheReason) {
    EXPECT_EQ(Respond(), Log(StartingLine() + EndedLine("True")));
    EXPECT_THAT(events.calls.Lines(),
                ElementsAre(Registration("Tarsel Nimbus Network Service"), StartingEntry(),
                            Deregistration, Registration("Tarsel Nimbus CInstall"),
                            Entry("The reason - Uninstalling"), Deregistration));
}

TEST_F(RespondToSecurityFailureTest, RecordsTheReasonEvenIfTheUninstallationFails) {
    const auto expectReasonRecorded = [&] {
        EXPECT_EQ(events.calls.Lines().at(events.calls.Lines().size() - 3),
                  Registration("Tarsel Nimbus CInstall"));
        EXPECT_EQ(events.calls.Of("ReportEventW").back(), Entry("The reason - Uninstalling"));
    };
    processes.waitResult = WAIT_TIMEOUT;
    EXPECT_EQ(Respond(), Log(StartingLine() + EndedLine("False")));
    expectReasonRecorded();
    processes.launches = false;
    EXPECT_EQ(Respond(), Log(StartingLine() + EndedLine("False")));
    expectReasonRecorded();
    RemoveProgram();
    EXPECT_EQ(Respond(), Log(MissingLine()));
    expectReasonRecorded();
    processes.ownPath.clear();
    EXPECT_EQ(Respond(), Log(""));
    expectReasonRecorded();
    EXPECT_THAT(events.calls.Of("ReportEventW"), testing::SizeIs(2 + 2 + 1 + 1));
}

TEST_F(RespondToSecurityFailureTest, SaysNothingOfAnEventLogThatFails) {
    events.reports = false;
    EXPECT_EQ(Respond(), Log(StartingLine() + EndedLine("True")));
    EXPECT_THAT(events.calls.Of("ReportEventW"), testing::SizeIs(2));
    events.registers = false;
    EXPECT_EQ(Respond(), Log(StartingLine() + EndedLine("True")));
    EXPECT_THAT(events.calls.Of("ReportEventW"), testing::SizeIs(2));
}

TEST_F(RespondToSecurityFailureTest, TakesAnEmptyReason) {
    processes.ownPath.clear();
    EXPECT_THAT(Respond(L""), testing::EndsWith("-\r\n - Uninstalling\r\n"));
    EXPECT_THAT(events.calls.Of("ReportEventW"), ElementsAre(Entry(" - Uninstalling")));
}

TEST_F(RespondToSecurityFailureTest, WritesItsLinesOneByOneAndTheReasonBeforeItsEntry) {
    processes.ownPath.clear();
    std::vector<std::string> steps;
    Printed([&] {
        const test::NotedPrints prints(steps);
        const test::NotedCalls<&::ReportEventW> report(steps, "report");
        std::wstring reason = L"Why";
        RespondToSecurityFailure(reason);
    });
    EXPECT_THAT(steps,
                ElementsAre("\r\n--------------------------\r\n", "Uninstalling Product.....\r\n",
                            "--------------------------\r\n", "Why - Uninstalling\r\n", "report"));
}

}  // namespace
