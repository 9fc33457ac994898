#include "proc/applications.h"

#include "machine/stand_ins/stand_in.h"
#include "shared/owner.h"
#include "support/console_capture.h"
#include "support/end_process.h"
#include "support/fake_processes.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/installed_service.h"
#include "support/noted_steps.h"
#include "support/on_wine.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

using test::FakeProcesses;
using test::Printed;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char StopItem[] = "Stopping Application ZEFIR.exe....with Window Title The Title ";
constexpr char NotFound[] = " application not found!\r\n";

std::string HelperStarted(const std::string& success) {
    return " Process Quitline.exe Started in context of ZEFIR.exe application to send QUIT Message "
           "- Success=" +
           success + "\r\n";
}

class StopApplicationTest : public testing::Test {
protected:
    std::string Stop(const std::wstring& name = L"ZEFIR.exe",
                     const std::wstring& title = L"The Title") {
        return Printed([&] {
            const test::NotedPrints prints(fake.calls);
            result = StopApplication(name, title);
        });
    }

    FakeProcesses fake;
    bool result = false;
};

TEST_F(StopApplicationTest, DoesNothingWithoutANameOrATitle) {
    result = true;
    EXPECT_EQ(Stop(L"", L"The Title"), "");
    EXPECT_FALSE(result);
    result = true;
    EXPECT_EQ(Stop(L"ZEFIR.exe", L""), "");
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.calls.Lines(), IsEmpty());
}

TEST_F(StopApplicationTest, RunsTheHelperAsTheApplicationsUserAndWaitsForIt) {
    fake.running = {{.id = 4, .path = L"C:\\System.exe", .opens = false},
                    {.id = 8, .path = L"C:\\other.exe"},
                    {.id = 12, .path = L"C:\\App\\ZEFIR.exe"},
                    {.id = 16, .path = L"C:\\App\\ZEFIR.exe"}};
    EXPECT_EQ(Stop(), StopItem + HelperStarted("True"));
    EXPECT_TRUE(result);
    EXPECT_THAT(
        fake.calls.Lines(),
        ElementsAre(std::string("print(") + StopItem + ")",
                    "K32EnumProcesses(16384)",  //
                    "OpenProcess(4096, 0, 4)",  // skipped
                    "OpenProcess(4096, 0, 8)", "QueryFullProcessImageNameW(process 8, 0, 260)",
                    "CloseHandle(process 8)",  // before the next one is opened
                    "OpenProcess(4096, 0, 12)", "QueryFullProcessImageNameW(process 12, 0, 260)",
                    "OpenProcessToken(process 12, 15)",
                    "CreateProcessAsUserW(token, null, Quitline.exe The Title, 1, 0, all "
                    "null, startup all zero)",
                    "WaitForSingleObject(new process, 30000)", "CloseHandle(new process)",
                    "CloseHandle(new thread)", "print(" + HelperStarted("True") + ")",
                    "CloseHandle(token)", "CloseHandle(process 12)"));
}

TEST_F(StopApplicationTest, FindsTheNameAnywhereInThePathInAnyCase) {
    const struct {
        const wchar_t* path;
        const wchar_t* name;
        bool matches;
    } rows[] = {
        {L"C:\\Program Files\\X\\zefir.EXE", L"ZEFIR.exe", true},
        {L"C:\\X\\AZEFIR.EXE", L"ZEFIR.exe", true},
        {L"C:\\ZEFIR.exe\\other.exe", L"ZEFIR.exe", true},
        {L"C:\\X\\ZEFIR.exe", L"zefir.EXE", true},
        {L"ZEFIR.exe", L"ZEFIR.exe", true},
        {L"C:\\X\\ZEFIR.com", L"ZEFIR.exe", false},
        {L"C:\\X\\ZEFIR.ex", L"ZEFIR.exe", false},
        {L"C:\\X\\ZEFIR_exe", L"ZEFIR.exe", false},
        {L"FIR.exe", L"ZEFIR.exe", false},  // the name is longer than the path
        {L"", L"ZEFIR.exe", false},         // the path is unknown
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(test::Narrow(row.path));
        fake.running = {{.id = 8, .path = row.path}};
        const bool notFound = Stop(row.name).ends_with(NotFound);
        EXPECT_EQ(notFound, !row.matches);
        EXPECT_EQ(result, row.matches);
        EXPECT_TRUE(fake.AllClosed());
    }
}

TEST_F(StopApplicationTest, PrintsThatTheApplicationIsNotFound) {
    fake.running = {{.id = 8, .path = L"C:\\other.exe"}};
    EXPECT_EQ(Stop(), std::string(StopItem) + NotFound);
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.calls.Of("OpenProcessToken"), IsEmpty());
}

TEST_F(StopApplicationTest, FindsNothingOnAnEmptyMachine) {
    EXPECT_EQ(Stop(), std::string(StopItem) + NotFound);
    EXPECT_THAT(fake.calls.Of("OpenProcess"), IsEmpty());
}

TEST_F(StopApplicationTest, FindsNothingWhenTheEnumerationFails) {
    fake.running = {{.id = 8, .path = L"C:\\ZEFIR.exe"}};
    fake.enumerates = false;
    EXPECT_EQ(Stop(), std::string(StopItem) + NotFound);
    EXPECT_FALSE(result);
    // The buffer keeps its zeros, of which no process has one for its id.
    EXPECT_THAT(fake.calls.Of("OpenProcess"), AllOf(SizeIs(4096), Each("OpenProcess(4096, 0, 0)")));
}

TEST_F(StopApplicationTest, CountsWholeIdentifiersOnly) {
    fake.running = {{.id = 8, .path = L"C:\\other.exe"}};
    fake.excessBytes = 3;
    Stop();
    EXPECT_THAT(fake.calls.Of("OpenProcess"), SizeIs(1));
}

TEST_F(StopApplicationTest, LooksAtAllOf4096Processes) {
    fake.running.assign(4095, {.id = 8, .path = L"", .opens = false});
    fake.running.push_back({.id = 12, .path = L"C:\\ZEFIR.exe"});
    EXPECT_EQ(Stop(), StopItem + HelperStarted("True"));
    EXPECT_THAT(fake.calls.Of("OpenProcess"), SizeIs(4096));
}

TEST_F(StopApplicationTest, LeavesTheLineWithoutAnEndWhenTheTokenIsRefused) {
    fake.running = {{.id = 8, .path = L"C:\\ZEFIR.exe"}};
    for (const bool refused : {true, false}) {
        SCOPED_TRACE(refused ? "refused" : "null");
        fake.givesToken = !refused;
        fake.tokenIsNull = !refused;
        result = true;
        EXPECT_EQ(Stop(), StopItem);
        EXPECT_FALSE(result);
        EXPECT_TRUE(fake.AllClosed());
    }
    EXPECT_THAT(fake.calls.Of("CreateProcessAsUserW"), IsEmpty());
    EXPECT_THAT(fake.calls.Of("CreateProcessW"), IsEmpty());
}

TEST_F(StopApplicationTest, CountsEveryEndOfTheWaitButATimeoutAsSuccess) {
    fake.running = {{.id = 8, .path = L"C:\\ZEFIR.exe"}};
    const struct {
        DWORD waitResult;
        bool success;
    } rows[] = {{0, true}, {0x80, true}, {0xFFFF'FFFF, true}, {258, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.waitResult);
        fake.waitResult = row.waitResult;
        EXPECT_EQ(Stop(), StopItem + HelperStarted(row.success ? "True" : "False"));
        EXPECT_EQ(result, row.success);
        EXPECT_TRUE(fake.AllClosed());
    }
    EXPECT_THAT(fake.calls.Of("TerminateProcess"), IsEmpty());  // a late helper is left running
}

TEST_F(StopApplicationTest, WaitsForNothingIfTheHelperCannotBeStarted) {
    fake.running = {{.id = 8, .path = L"C:\\ZEFIR.exe"}};
    fake.launches = false;
    EXPECT_EQ(Stop(), StopItem + HelperStarted("False"));
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.calls.Of("WaitForSingleObject"), IsEmpty());
    EXPECT_TRUE(fake.AllClosed());
}

TEST_F(StopApplicationTest, PassesTheTitleToTheHelperUnquotedAndPrintsItsTrademark) {
    fake.running = {{.id = 8, .path = L"C:\\ZEFIR.exe"}};
    EXPECT_EQ(Stop(L"ZEFIR.exe", L"Tarsel\u00AE Lumetra"),
              "Stopping Application ZEFIR.exe....with Window Title Tarsel\xAE Lumetra " +
                  HelperStarted("True"));
    EXPECT_THAT(fake.calls.Of("CreateProcessAsUserW"),
                ElementsAre("CreateProcessAsUserW(token, null, Quitline.exe Tarsel\xAE Lumetra, 1, "
                            "0, all null, startup all zero)"));
}

TEST_F(StopApplicationTest, GoesOnAfterATitleThatCannotBePrinted) {
    fake.running = {{.id = 8, .path = L"C:\\ZEFIR.exe"}};
    const std::string log = Stop(L"ZEFIR.exe", L"\u20AC");
    EXPECT_TRUE(log.ends_with(HelperStarted("True"))) << log;
    EXPECT_TRUE(result);
}

// Real: this program is found and its token opened, but the helper is missing.
TEST(StopApplication, FailsOnAMachineWithoutTheHelper) {
    bool result = true;
    EXPECT_EQ(Printed([&] { result = StopApplication(L"UNIT_tests.exe", L"Title"); }),
              "Stopping Application UNIT_tests.exe....with Window Title Title  Process "
              "Quitline.exe Started in context of UNIT_tests.exe application to send QUIT Message "
              "- Success=False\r\n");
    EXPECT_FALSE(result);
}

class StartApplicationTest : public testing::Test {
protected:
    std::string Start(const std::wstring& arguments = L"-u") {
        return Printed([&] {
            const test::NotedPrints prints(fake.calls);
            result = StartApplication(L"BriskoLU.exe", arguments);
        });
    }

    FakeProcesses fake;
    bool result = false;
};

constexpr char StartItem[] = "Starting Application BriskoLU.exe with command line -u....";

TEST_F(StartApplicationTest, StartsFromTheOwnDirectoryAndWaitsForNothing) {
    EXPECT_EQ(Start(), std::string(StartItem) + "started\r\n");
    EXPECT_TRUE(result);
    EXPECT_THAT(
        fake.calls.Lines(),
        ElementsAre(std::string("print(") + StartItem + ")",
                    "QueryFullProcessImageNameW(own process, 0, 260)",
                    "CreateProcessW(no token, null, C:\\Own Directory\\BriskoLU.exe -u, 1, "
                    "0, all null, startup all zero)",
                    "CloseHandle(new process)", "CloseHandle(new thread)", "print(started\r\n)"));
}

TEST_F(StartApplicationTest, KeepsTheBlankWithoutArguments) {
    EXPECT_EQ(Start(L""), "Starting Application BriskoLU.exe with command line ....started\r\n");
    EXPECT_THAT(fake.calls.Of("CreateProcessW"),
                ElementsAre("CreateProcessW(no token, null, C:\\Own Directory\\BriskoLU.exe , 1, "
                            "0, all null, startup all zero)"));
}

TEST_F(StartApplicationTest, LaunchesNothingIfItsOwnDirectoryIsUnknown) {
    fake.ownPath.clear();
    result = true;
    EXPECT_EQ(Start(), std::string(StartItem) + "start failed!\r\n");
    EXPECT_FALSE(result);
    EXPECT_THAT(fake.calls.Of("CreateProcessW"), IsEmpty());
}

TEST_F(StartApplicationTest, FailsWithTheLaunch) {
    fake.launches = false;
    result = true;
    EXPECT_EQ(Start(), std::string(StartItem) + "start failed!\r\n");
    EXPECT_FALSE(result);
    EXPECT_TRUE(fake.AllClosed());
}

// The stand-in in a directory of its own, which this program also treats as its own; terminated
// after it was started.
class RealCompanion {
public:
    explicit RealCompanion(const std::wstring& directory) : path_(directory + L"\\companion.exe") {
        std::filesystem::copy_file(test::BesideThisProgram(L"stand_in_companion.exe"), path_);
    }
    RealCompanion(const RealCompanion&) = delete;
    RealCompanion& operator=(const RealCompanion&) = delete;
    ~RealCompanion() { test::EndProcess(id_); }

    [[nodiscard]] std::string Path() const { return test::Narrow(path_); }

    // The command line that it recorded.
    [[nodiscard]] std::optional<std::string> CommandLine() const {
        const Utils::KernelHandle ready(stand_in::ReadyEvent(id_));
        EXPECT_EQ(::WaitForSingleObject(ready.Get(), 30'000), DWORD{WAIT_OBJECT_0});
        return test::FileText(path_ + L".started");
    }

private:
    std::wstring path_;
    DWORD id_ = 0;
    test::ImportHook<&::QueryFullProcessImageNameW> ownPath_{
        [this](HANDLE, DWORD, LPWSTR buffer, PDWORD size) {
            *size = static_cast<DWORD>(path_.copy(buffer, *size - 1));
            buffer[*size] = L'\0';
            return TRUE;
        }};
    test::ImportHook<&::CreateProcessW> create_{
        [this](LPCWSTR application, LPWSTR commandLine, auto* processSecurity, auto* threadSecurity,
               BOOL inherit, DWORD flags, LPVOID environment, LPCWSTR directory,
               LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) {
            const BOOL created =
                create_.Forward(application, commandLine, processSecurity, threadSecurity, inherit,
                                flags, environment, directory, startup, info);
            id_ = created ? info->dwProcessId : 0;
            return created;
        }};
};

TEST(StartApplication, StartsARealProgramBesideThisOne) {
    const test::TemporaryDirectory directory;
    std::filesystem::create_directory(directory / L"with a blank");
    for (const std::wstring& place : {directory.Path(), directory / L"with a blank"}) {
        SCOPED_TRACE(test::Narrow(place));
        const RealCompanion companion(place);
        bool result = false;
        EXPECT_EQ(Printed([&] { result = StartApplication(L"companion.exe", L"-u  x"); }),
                  "Starting Application companion.exe with command line -u  x....started\r\n");
        EXPECT_TRUE(result);
        // Wine puts a path with blanks into quotes.
        const bool quoted = test::OnWine() && place.find(L' ') != std::wstring::npos;
        const std::string quote = quoted ? "\"" : "";
        EXPECT_EQ(companion.CommandLine(), quote + companion.Path() + quote + " -u  x\r\n");
    }
}

}  // namespace
