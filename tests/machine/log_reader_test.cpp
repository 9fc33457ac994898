// The log reader on the machine, and the logs that test it and the documentation.

#include "machine/machine.h"
#include "support/expected_log.h"
#include "support/file_contents.h"

#include <windows.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

using test::Course;
using test::Verdict;
using testing::StartsWith;

constexpr std::chrono::seconds QuitLimit{10};  // for an application that was asked to quit

class ReaderOfLogs : public testing::Test {
protected:
    ReaderOfLogs() {
        machine.InstallProduct();
        machine.InstallProgram(L"finaset-log.exe", L"finaset-log.exe");
    }

    void SetUp() override {
        if (_wgetenv(L"FINASET_ADAPTERS") == nullptr) {
            GTEST_SKIP() << "this machine cannot be given adapters; see fresh_machine.sh";
        }
        if (_wgetenv(L"FINASET_LOGS") == nullptr) {
            GTEST_SKIP() << "FINASET_LOGS does not say where the logs lie";
        }
    }

    // Runs the program, whose log must be the model's and the one that is kept under this name, and
    // the reader on that log. Returns the reader's exit code; what it prints is in `printed`.
    int RunAndRead(const std::string& name, Course course) {
        course.adapters = {L"TarselQZ311"};
        counted_ = CountsOf(course);
        const std::string log = machine.Run().log;
        EXPECT_EQ(log, test::LogOf(course));
        const std::filesystem::path kept =
            std::filesystem::path(_wgetenv(L"FINASET_LOGS")) / (name + ".log");
        if (_wgetenv(L"FINASET_KEEP_LOGS") != nullptr) {  // to rewrite it
            test::PutFile(kept, log);
        }
        EXPECT_EQ(log, test::FileText(kept)) << kept;
        test::PutFile(L"C:\\captured.log", log);
        return Read(L"C:\\captured.log");
    }

    int Read(const std::wstring& arguments) {
        const std::wstring command = L"cd /d \"" + machine.ProgramDirectory().wstring() +
                                     L"\" && finaset-log.exe " + arguments + L" > C:\\printed.txt";
        const int exitCode = ::_wsystem(command.c_str());
        printed = test::FileText(L"C:\\printed.txt").value();
        return exitCode;
    }

    // How many items are fine and how many failed as expected, if `more` of each need attention.
    [[nodiscard]] std::string Counted(std::size_t more = 0) const {
        return "(" + std::to_string(counted_.first - more) + " ok, " +
               std::to_string(counted_.second - more) + " failed as expected).";
    }

    test::Machine machine;
    std::string printed;

private:
    // The items that succeed or have no verdict, and the others. The result of a missing obsolete
    // task counts as a failure too.
    static std::pair<std::size_t, std::size_t> CountsOf(const Course& course) {
        std::size_t good = 0;
        std::size_t others = course.startupTask ? 0 : 1;
        for (const test::LogItem& item : test::ItemsOf(course)) {
            if (item.kind != test::ItemKind::Heading) {
                ++(item.verdict == Verdict::Good ? good : others);
            }
        }
        return {good - (course.startupTask ? 0 : 1), others};
    }

    std::pair<std::size_t, std::size_t> counted_;
};

TEST_F(ReaderOfLogs, FindsNothingWrongWithAFirstInstallation) {
    machine.RemoveSetting(L"ConfigFileDirectory");  // of an earlier installation
    EXPECT_EQ(
        RunAndRead("first-installation", {.verdicts = test::NothingRuns, .staleSettings = false}),
        0);
    EXPECT_THAT(printed, StartsWith("Nothing needs attention " + Counted()));

    // The same from standard input.
    const std::string fromFile = printed;
    EXPECT_EQ(Read(L"< C:\\captured.log"), 0);
    EXPECT_EQ(printed, fromFile);
}

TEST_F(ReaderOfLogs, FindsNothingWrongWithAReinstallation) {
    ASSERT_EQ(machine.Run().exitCode, 0U);
    test::Machine::ScheduleTask(L"Tarsel Lumetra Startup Task");
    const Utils::KernelHandle application = machine.StartApplication(L"ZEFIR.exe");
    test::Verdicts verdicts = test::RunsAfterARun();
    verdicts.emplace_back("Stopping Application ", Verdict::Good);
    EXPECT_EQ(RunAndRead("reinstallation", {.verdicts = verdicts,
                                            .staleSettings = false,
                                            .configured = true,
                                            .startupTask = true}),
              0);
    EXPECT_TRUE(test::Ended(application, QuitLimit));
    EXPECT_THAT(printed, StartsWith("Nothing needs attention " + Counted()));
}

TEST_F(ReaderOfLogs, SaysWhatIsWrongWithAnInsecureMachine) {
    const std::filesystem::path victim = L"C:\\victim";
    test::PutFile(victim, "victim");
    const std::filesystem::path link = test::Machine::DataDirectory() / L"Nimbus\\link";
    std::filesystem::create_directories(link.parent_path());
    ASSERT_TRUE(::CreateHardLinkW(link.c_str(), victim.c_str(), nullptr));
    const Utils::KernelHandle application = machine.StartProduct();
    EXPECT_EQ(RunAndRead("insecure-machine", {.verdicts = {{"Verifying Children", Verdict::Bad}},
                                              .there = {link.parent_path().string()},
                                              .startupTask = true}),
              1);
    EXPECT_TRUE(test::Ended(application, QuitLimit));
    // The link, and the reason for the uninstallation.
    EXPECT_THAT(printed, StartsWith("2 things need attention " + Counted(1)));
    std::filesystem::remove(victim);
}

}  // namespace
