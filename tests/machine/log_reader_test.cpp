// The reader of logs on the machine, and the logs that it and the documentation are tested with.

#include "machine/machine.h"
#include "support/file_contents.h"

#include <windows.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

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

    // Runs the program, whose log must be the one that is kept under this name, and the reader on
    // that log. Returns the reader's exit code; what it prints is in `printed`.
    int RunAndRead(const std::string& name) {
        const std::string log = machine.Run().log;
        const std::filesystem::path kept =
            std::filesystem::path(_wgetenv(L"FINASET_LOGS")) / (name + ".log");
        if (_wgetenv(L"FINASET_KEEP_LOGS") != nullptr) {  // to renew them by hand
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

    test::Machine machine;
    std::string printed;
};

TEST_F(ReaderOfLogs, FindsNothingWrongWithAFirstInstallation) {
    machine.RemoveSetting(L"ConfigFileDirectory");  // of an earlier installation
    EXPECT_EQ(RunAndRead("first-installation"), 0);
    EXPECT_THAT(printed, StartsWith("Nothing needs attention (31 ok, 17 failed as expected)."));

    // The same from standard input.
    const std::string fromFile = printed;
    EXPECT_EQ(Read(L"< C:\\captured.log"), 0);
    EXPECT_EQ(printed, fromFile);
}

TEST_F(ReaderOfLogs, FindsNothingWrongWithAReinstallation) {
    ASSERT_EQ(machine.Run().exitCode, 0U);
    test::Machine::ScheduleTask(L"Tarsel Lumetra Startup Task");
    const Utils::KernelHandle application = machine.StartApplication(L"ZEFIR.exe");
    EXPECT_EQ(RunAndRead("reinstallation"), 0);
    EXPECT_TRUE(test::Ended(application, QuitLimit));
    EXPECT_THAT(printed, StartsWith("Nothing needs attention (35 ok, 13 failed as expected)."));
}

TEST_F(ReaderOfLogs, SaysWhatIsWrongWithAnInsecureMachine) {
    const std::filesystem::path victim = L"C:\\victim";
    test::PutFile(victim, "victim");
    const std::filesystem::path link = test::Machine::DataDirectory() / L"Nimbus\\link";
    std::filesystem::create_directories(link.parent_path());
    ASSERT_TRUE(::CreateHardLinkW(link.c_str(), victim.c_str(), nullptr));
    const Utils::KernelHandle application = machine.StartProduct();
    EXPECT_EQ(RunAndRead("insecure-machine"), 1);
    EXPECT_TRUE(test::Ended(application, QuitLimit));
    EXPECT_THAT(printed, StartsWith("2 things need attention (18 ok, 5 failed as expected)."));
    std::filesystem::remove(victim);
}

}  // namespace
