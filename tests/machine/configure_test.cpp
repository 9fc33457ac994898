// Whole runs of the configure action, on machines in all kinds of states.

#include "machine/expected_log.h"
#include "machine/machine.h"

#include <windows.h>

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace test;  // the expected log
using testing::ElementsAre;
using testing::IsEmpty;

class Configure : public testing::Test {
protected:
    Configure() { machine.InstallProduct(); }

    void ExpectRun(const std::string& sections, const std::wstring& arguments = L"/CONFIGURE") {
        const FinishedRun run = machine.Run(arguments);
        EXPECT_EQ(run.log, WholeLog(sections));
        EXPECT_EQ(run.exitCode, 0U);
    }

    Machine machine;
};

TEST_F(Configure, KeepsTheUsersFileAndReplacesTheOthersOnAReinstallation) {
    ExpectRun(FirstConfigureSection);
    const std::filesystem::path directory = Machine::ConfigurationDirectory();
    WriteFile(directory / "user.xml", "edited");
    WriteFile(directory / "oem.xml", "edited");
    WriteFile(directory / "vx.stg", "edited");
    ExpectRun(LaterConfigureSection);
    EXPECT_EQ(ReadFile(directory / "user.xml"), "edited");
    EXPECT_EQ(ReadFile(directory / "oem.xml"), "shipped oem.xml");
    EXPECT_EQ(ReadFile(directory / "vx.stg"), "shipped vx.stg");
}

TEST_F(Configure, LeavesTheSameMachineHoweverOftenItRuns) {
    ExpectRun(FirstConfigureSection);
    const MachineState first = machine.Describe();
    for (int more = 0; more < 2; ++more) {
        ExpectRun(LaterConfigureSection);
        const MachineState again = machine.Describe();
        EXPECT_EQ(again.settings, first.settings);
        EXPECT_EQ(again.dataFiles, first.dataFiles);
        EXPECT_EQ(again.staleKey, first.staleKey);
        EXPECT_EQ(again.services, first.services);
    }
}

TEST_F(Configure, GoesOnWithoutTheDriverDirectory) {
    std::filesystem::remove_all(Machine::DriverDirectory());
    ExpectRun(DeletedSettings(true) + FilesOfNoInstallation + SecuredDirectories(true) +
              RestOfConfigure);
    EXPECT_THAT(machine.Describe().dataFiles, IsEmpty());
}

// How a link stands somewhere: a directory link that leads to a victim outside of the product.
class ConfigureWithALink : public Configure {
protected:
    ConfigureWithALink() {
        std::filesystem::remove_all(VictimDirectory);
        WriteFile(VictimFile, "victim");
    }
    ~ConfigureWithALink() override { std::filesystem::remove_all(VictimDirectory); }

    // A second name for the victim's file.
    static void HardLink(const std::filesystem::path& path) {
        std::filesystem::create_directories(path.parent_path());
        ASSERT_TRUE(::CreateHardLinkW(path.c_str(), VictimFile.c_str(), nullptr));
    }

    static void ExpectVictimUntouched() {
        EXPECT_EQ(ReadFile(VictimFile), "victim");
        EXPECT_TRUE(std::filesystem::exists(VictimFile));
    }

    std::string Response() const {
        const std::string program = (machine.ProgramDirectory() / L"Unfinaset.exe").string();
        return "\n--------------------------\n"
               "Uninstalling Product.....\n"
               "--------------------------\n"
               "First Run - Starting " +
               program + " Process\nFirst Run - Process " + program +
               " Ended (True)\n"
               "Security Vulnerability Securing Directories due to Failure Setting ACLs or Links "
               "Detected - Uninstalling\n";
    }

    static inline const std::filesystem::path VictimDirectory = L"C:\\Victim";
    static inline const std::filesystem::path VictimFile = VictimDirectory / L"file";
};

TEST_F(ConfigureWithALink, EndsAtAHardLinkAmongTheEntriesOfEachDirectory) {
    struct Row {
        std::string directory;
        std::string before;
        bool created;
    };
    const std::string nimbus = Securing({.directory = NimbusDirectory});
    const std::string files = nimbus + Securing({.directory = ConfigurationDirectory});
    const std::string images =
        files + Securing({.directory = ImageCacheDirectory, .created = true});
    const Row rows[] = {
        {NimbusDirectory, "", false},
        {ConfigurationDirectory, nimbus, false},
        {ImageCacheDirectory, files, false},
        {ActivityLogDirectory, images, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.directory);
        std::filesystem::remove_all(Machine::DataDirectory());
        HardLink(std::filesystem::path(row.directory) / L"link");
        machine.WriteStaleSettings();
        machine.WriteSetting(L"FirstRun", 1);
        // The configuration directory is there already when the link lies in it.
        const bool there = row.directory == ConfigurationDirectory;
        std::string copied = FilesOfAFirstInstallation;
        if (there) {
            copied.replace(copied.find("Success"), 7, "Failure");
        }
        ExpectRun(DeletedSettings(true) + copied + "\nSecureFilesDirectories.....\n" + row.before +
                  Securing({.directory = row.directory, .childHasLink = true}) + Response());
        ExpectVictimUntouched();
        EXPECT_EQ(machine.Describe().settings,
                  (std::map<std::wstring, std::wstring>{{L"FirstRun", L"0"}}));
    }
}

TEST_F(ConfigureWithALink, DoesNotSeeAHardLinkOneLevelDeeper) {
    HardLink(Machine::DataDirectory() / L"ImageCache\\below\\link");
    std::string secured = SecuredDirectories(true);
    const std::string created = "Creating Directory " + ImageCacheDirectory + " \t - \t";
    secured.replace(secured.find(created) + created.size(), 7, "Failure");
    ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation + secured + RestOfConfigure);
    ExpectVictimUntouched();
}

TEST_F(ConfigureWithALink, StartsAndDisablesNothingAfterwards) {
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    machine.WriteSetting(L"FinasetAction", 1 + 4 + 8 + 16);
    const Utils::KernelHandle application = machine.StartProduct();
    ExpectRun(StopSection(AskedToQuit + AllServicesStopped) + DeletedSettings(true) +
                  FilesOfAFirstInstallation + "\nSecureFilesDirectories.....\n" +
                  Securing({.directory = NimbusDirectory, .childHasLink = true}) + Response(),
              L"");
    for (const auto& [name, service] : machine.Describe().services) {
        EXPECT_EQ(service.state, static_cast<DWORD>(SERVICE_STOPPED));
        EXPECT_EQ(service.startType, static_cast<DWORD>(SERVICE_AUTO_START));
    }
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"), IsEmpty());
    EXPECT_EQ(machine.StartsOf(L"Unfinaset.exe").size(), 1U);
}

}  // namespace
