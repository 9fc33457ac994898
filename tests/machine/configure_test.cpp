// Whole runs of the configure action, on machines in all kinds of states.

#include "fs/path_helpers.h"
#include "machine/expected_log.h"
#include "machine/machine.h"
#include "support/environment_variable.h"
#include "support/file_contents.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace test;  // the expected log
using testing::ElementsAre;
using testing::IsEmpty;

// The text with each first piece replaced by its second: at its first place, or at all.
std::string ReplaceIn(std::string text,
                      const std::vector<std::pair<std::string, std::string>>& replacements,
                      bool everywhere = false) {
    for (const auto& [from, to] : replacements) {
        std::size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        while (at != std::string::npos) {
            text.replace(at, from.size(), to);
            at = everywhere ? text.find(from, at + to.size()) : std::string::npos;
        }
    }
    return text;
}

// The securing the first time, but for an image cache that is there already.
std::string SecuredWithImages() {
    return ReplaceIn(SecuredDirectories(true), {{ImageCacheDirectory + " \t - \tSuccess",
                                                 ImageCacheDirectory + " \t - \tFailure"}});
}

// The access list of a path. Under Wine it is made up from the file's mode: lists that differ can
// read back alike.
std::wstring AccessListOf(const std::filesystem::path& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ::GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, nullptr, nullptr, &descriptor);
    wchar_t* text = nullptr;
    ::ConvertSecurityDescriptorToStringSecurityDescriptorW(
        descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr);
    std::wstring list = text;
    ::LocalFree(text);
    ::LocalFree(descriptor);
    return list;
}

// Lets everyone do everything with a path. Of all lists this one reads back otherwise than any that
// the product sets or resets, under Wine too.
void OpenToEveryone(const std::filesystem::path& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ::ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;WD)", SDDL_REVISION_1,
                                                           &descriptor, nullptr);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    ::GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted);
    std::wstring name = path.wstring();
    EXPECT_EQ(
        ::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, list, nullptr),
        static_cast<DWORD>(ERROR_SUCCESS));
    ::LocalFree(descriptor);
}

using DataFiles = std::map<std::wstring, std::string>;

// The data files after the shipped ones are copied to them.
DataFiles Installed(DataFiles files) {
    const std::wstring directory = L"Nimbus\\ConfigurationFiles\\";
    files.try_emplace(directory + L"user.xml", "shipped user.xml");
    files[directory + L"oem.xml"] = "shipped oem.xml";
    files[directory + L"vx.stg"] = "shipped vx.stg";
    return files;
}

// The settings after a run: without the directory that it forgets, and with the mark cleared.
std::map<std::wstring, std::wstring> Configured(std::map<std::wstring, std::wstring> settings) {
    settings.erase(L"ConfigFileDirectory");
    settings[L"FirstRun"] = L"0";
    return settings;
}

// The response to a securing failure, with the lines of the uninstall program.
std::string ResponseOf(const std::string& uninstall) {
    return "\n--------------------------\n"
           "Uninstalling Product.....\n"
           "--------------------------\n" +
           uninstall +
           "Security Vulnerability Securing Directories due to Failure Setting ACLs or Links "
           "Detected - Uninstalling\n";
}

class Configure : public testing::Test {
protected:
    Configure() { machine.InstallProduct(); }

    // Runs the action, and expects its log and that it changes nothing but the settings and the
    // data files, which are then `files`, or those that are there with the shipped ones.
    void ExpectRun(const std::string& sections, const std::optional<DataFiles>& files = {}) {
        machine.WriteSetting(L"FirstRun", 1);
        const MachineState before = machine.Describe();
        const FinishedRun run = machine.Run(L"/CONFIGURE");
        EXPECT_EQ(run.log, WholeLog(sections));
        EXPECT_EQ(run.exitCode, 0U);
        const MachineState after = machine.Describe();
        EXPECT_EQ(after.services, before.services);
        EXPECT_EQ(after.applications, before.applications);
        EXPECT_EQ(after.settings, Configured(before.settings));
        EXPECT_EQ(after.dataFiles, files ? *files : Installed(before.dataFiles));
        EXPECT_FALSE(after.staleKey);
    }

    [[nodiscard]] std::string UninstallProgram() const {
        return (machine.ProgramDirectory() / L"Unfinaset.exe").string();
    }

    // The lines of an uninstall program that is quick.
    [[nodiscard]] std::string QuickUninstall() const {
        return "First Run - Starting " + UninstallProgram() + " Process\nFirst Run - Process " +
               UninstallProgram() + " Ended (True)\n";
    }

    Machine machine;
};

TEST_F(Configure, KeepsTheUsersFileAndReplacesTheOthersOnAReinstallation) {
    ExpectRun(FirstConfigureSection);
    const std::filesystem::path directory = Machine::ConfigurationDirectory();
    PutFile(directory / "user.xml", "edited");
    PutFile(directory / "oem.xml", "edited");
    PutFile(directory / "vx.stg", "edited");
    ExpectRun(LaterConfigureSection);
    EXPECT_EQ(FileText(directory / "user.xml"), "edited");
}

TEST_F(Configure, LeavesTheSameMachineHoweverOftenItRuns) {
    ExpectRun(FirstConfigureSection);
    for (const std::string& directory :
         {NimbusDirectory, ConfigurationDirectory, ImageCacheDirectory, ActivityLogDirectory}) {
        EXPECT_TRUE(std::filesystem::is_directory(directory)) << directory;
    }
    const MachineState first = machine.Describe();
    for (int more = 0; more < 2; ++more) {
        ExpectRun(LaterConfigureSection);
        const MachineState again = machine.Describe();
        EXPECT_EQ(again.settings, first.settings);
        EXPECT_EQ(again.dataFiles, first.dataFiles);
        EXPECT_EQ(again.staleKey, first.staleKey);
        EXPECT_EQ(again.hardwareBitmask, first.hardwareBitmask);
        EXPECT_EQ(again.services, first.services);
    }
}

TEST_F(Configure, GoesOnWithoutTheDriverDirectory) {
    std::filesystem::remove_all(Machine::DriverDirectory());
    ExpectRun(
        DeletedSettings(true) + FilesOfNoInstallation + SecuredDirectories(true) + RestOfConfigure,
        DataFiles());
}

TEST_F(Configure, GoesOnAfterAReadOnlyDestination) {
    ExpectRun(FirstConfigureSection);
    const std::filesystem::path file = Machine::ConfigurationDirectory() / L"oem.xml";
    PutFile(file, "read-only");
    ::SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    // Under Wine, whoever is root may replace it.
    const std::filesystem::path probe = Machine::ConfigurationDirectory() / L"vx.stg";
    ::SetFileAttributesW(probe.c_str(), FILE_ATTRIBUTE_READONLY);
    const bool replaceable = ::CopyFileW((Machine::DriverDirectory() / L"vx.stg").c_str(),
                                         probe.c_str(), FALSE) != FALSE;
    ::SetFileAttributesW(probe.c_str(), FILE_ATTRIBUTE_NORMAL);

    DataFiles files = Installed({});
    files[L"Nimbus\\ConfigurationFiles\\oem.xml"] = replaceable ? "shipped oem.xml" : "read-only";
    ExpectRun(DeletedSettings(false) +
                  ReplaceIn(FilesOfAReinstallation,
                            {{"oem.xml \t - \tSuccess", "oem.xml \t - \tFailure"},
                             {"oem.xml     overwriting =true\t - \tSuccess",
                              std::string("oem.xml     overwriting =true\t - \t") +
                                  (replaceable ? "Success" : "Failure")}}) +
                  SecuredDirectories(false) + RestOfConfigure,
              files);
    ::SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Configure, GoesOnAfterADestinationThatIsADirectory) {
    std::filesystem::create_directories(Machine::ConfigurationDirectory() / L"oem.xml");
    DataFiles files = Installed({});
    files.erase(L"Nimbus\\ConfigurationFiles\\oem.xml");
    ExpectRun(DeletedSettings(true) +
                  ReplaceIn(FilesOfAFirstInstallation,
                            {{"ConfigurationFiles\\ \t - \tSuccess",
                              "ConfigurationFiles\\ \t - \tFailure"},
                             {"oem.xml     overwriting =true\t - \tSuccess",
                              "oem.xml     overwriting =true\t - \tFailure"}}) +
                  SecuredDirectories(true) + RestOfConfigure,
              files);
    EXPECT_TRUE(std::filesystem::is_directory(Machine::ConfigurationDirectory() / L"oem.xml"));
}

// What a value that names a directory holds, and which directory is then secured.
struct DirectoryValue {
    const char* name;
    DWORD type;
    std::wstring text;
    std::string secured;  // the default directory if empty
};

TEST_F(Configure, SecuresTheDirectoriesThatTheSettingsName) {
    const DirectoryValue rows[] = {
        {"another place", REG_SZ, L"C:\\Elsewhere\\images", "C:\\Elsewhere\\images"},
        {"a variable", REG_EXPAND_SZ, L"%SystemDrive%\\Elsewhere\\images", "C:\\Elsewhere\\images"},
        {"a variable in a plain string", REG_SZ, L"%SystemDrive%\\Elsewhere\\images",
         "C:\\Elsewhere\\images"},
        {"a trailing backslash", REG_SZ, L"C:\\Elsewhere\\images\\", "C:\\Elsewhere\\images\\"},
        {"no string", REG_BINARY, L"C:\\Elsewhere\\images", ""},
    };
    const std::string separators[] = {"", "\\"};  // what the program puts behind the directory
    const std::wstring names[] = {L"ImageCacheDirectory", L"ActivityLogDirectory"};
    const std::string defaults[] = {ImageCacheDirectory, ActivityLogDirectory};
    for (const DirectoryValue& row : rows) {
        for (std::size_t which : {0U, 1U}) {
            SCOPED_TRACE(row.name);
            std::filesystem::remove_all(Machine::DataDirectory());
            std::filesystem::remove_all(L"C:\\Elsewhere");
            machine.WriteStaleSettings();
            machine.WriteTextSetting(names[which], row.text, row.type);
            const std::string directory =
                row.secured.empty() ? defaults[which] : row.secured + separators[which];
            ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation +
                      ReplaceIn(SecuredDirectories(true), {{defaults[which], directory}}, true) +
                      RestOfConfigure);
            EXPECT_TRUE(std::filesystem::is_directory(directory));
            machine.RemoveSetting(names[which]);
        }
    }
    std::filesystem::remove_all(L"C:\\Elsewhere");
}

// The log of a directory whose access list cannot be set.
std::string NotSecured(const std::string& directory) {
    return ReplaceIn(
        Securing({.directory = directory}),
        {{"Setting DACLs on File/Directory " + directory + " \t - \tSuccess",
          "Setting DACLs on File/Directory " + directory + " \t - \tFailure"},
         {"Setting Child Inheritance DACLs on File/Directory " + directory + " \t - \tSuccess\n",
          ""}});
}

TEST_F(Configure, CannotSecureADirectoryThatCannotBe) {
    const std::wstring longText = L"C:\\" + std::wstring(3997, L'x');
    const std::wstring texts[] = {L"Q:\\nowhere", longText, L""};
    for (const std::wstring& text : texts) {
        for (const bool image : {true, false}) {
            if (!image && text.empty()) {
                continue;  // that is a directory: see below
            }
            SCOPED_TRACE(text.size());
            std::filesystem::remove_all(Machine::DataDirectory());
            machine.WriteStaleSettings();
            const std::wstring name = image ? L"ImageCacheDirectory" : L"ActivityLogDirectory";
            machine.WriteTextSetting(name, text);
            // What the platform leaves of a text that is too long is its own business.
            const std::wstring shown =
                ExpandEnvironmentPath(ExpandEnvironmentPath(image ? text : text + L"\\"));
            ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation +
                      "\nSecureFilesDirectories.....\n" + Securing({.directory = NimbusDirectory}) +
                      Securing({.directory = ConfigurationDirectory}) +
                      (image ? "" : Securing({.directory = ImageCacheDirectory, .created = true})) +
                      NotSecured(std::string(shown.begin(), shown.end())) +
                      ResponseOf(QuickUninstall()));
            machine.RemoveSetting(name);
        }
    }
}

// An empty activity-log directory is the root of the drive that the program runs on. Not to be
// tried on a drive that matters.
TEST_F(Configure, SecuresTheRootOfTheCurrentDriveForAnEmptyActivityLogDirectory) {
    PutFile(L"C:\\Sandbox\\below\\file", "kept");
    const Drive drive(L'S', L"C:\\Sandbox");
    machine.WriteTextSetting(L"ActivityLogDirectory", L"");
    ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation +
              "\nSecureFilesDirectories.....\n" + Securing({.directory = NimbusDirectory}) +
              Securing({.directory = ConfigurationDirectory}) +
              Securing({.directory = ImageCacheDirectory, .created = true}) +
              Securing({.directory = "\\"}) + RestOfConfigure);
    EXPECT_EQ(FileText(L"C:\\Sandbox\\below\\file"), "kept");
}

TEST_F(Configure, ForgetsTheConfigurationDirectoryWhateverTheValueHolds) {
    const std::pair<DWORD, std::wstring> values[] = {
        {REG_SZ, L"C:\\Elsewhere"},
        {REG_EXPAND_SZ, L"%SystemDrive%\\Elsewhere"},
        {REG_SZ, L"C:\\Elsewhere\\"},
        {REG_BINARY, L"C:\\Elsewhere"},
        {REG_SZ, L""},
        {REG_SZ, std::wstring(4000, L'x')},
        {REG_SZ, L"Q:\\nowhere"},
    };
    for (const auto& [type, text] : values) {
        SCOPED_TRACE(text.size());
        std::filesystem::remove_all(Machine::DataDirectory());
        machine.WriteStaleSettings();
        machine.WriteTextSetting(L"ConfigFileDirectory", text, type);
        ExpectRun(FirstConfigureSection);
    }
}

// What is below a directory is reset, unless that has any attribute beside that of being one: then
// it is left alone, which counts as secured.
TEST_F(Configure, ResetsWhatIsBelowADirectoryUnlessThatHasAnotherAttribute) {
    const std::filesystem::path images = Machine::DataDirectory() / L"ImageCache";
    const std::filesystem::path paths[] = {images / L"file", images / L"below",
                                           images / L"below\\file"};
    for (const bool hidden : {true, false}) {
        SCOPED_TRACE(hidden);
        std::filesystem::remove_all(Machine::DataDirectory());
        machine.WriteStaleSettings();
        PutFile(paths[0], "kept");
        PutFile(paths[2], "kept");
        OpenToEveryone(images);
        const std::wstring open = AccessListOf(images);
        std::vector<std::wstring> before;
        for (const std::filesystem::path& path : paths) {
            OpenToEveryone(path);
            before.push_back(AccessListOf(path));
        }
        if (hidden) {
            ASSERT_TRUE(::SetFileAttributesW(images.c_str(), FILE_ATTRIBUTE_HIDDEN));
        }
        ASSERT_EQ(::GetFileAttributesW(images.c_str()), hidden ? 0x12U : 0x10U);
        ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation + SecuredWithImages() +
                  RestOfConfigure);
        EXPECT_NE(AccessListOf(images), open);
        for (std::size_t i = 0; i < before.size(); ++i) {
            EXPECT_EQ(AccessListOf(paths[i]) == before[i], hidden) << paths[i];
        }
    }
}

TEST_F(Configure, SecuresATreeOf2000EntriesInSixLevels) {
    std::filesystem::path level = Machine::DataDirectory() / L"ImageCache";
    for (int depth = 0; depth < 6; ++depth) {
        for (int number = 0; number < 333; ++number) {
            PutFile(level / (L"file " + std::to_wstring(number)), "");
        }
        level /= L"below";
    }
    const std::filesystem::path deepest = level.parent_path() / L"file 332";
    OpenToEveryone(deepest);
    const std::wstring open = AccessListOf(deepest);
    ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation + SecuredWithImages() +
              RestOfConfigure);
    EXPECT_EQ(machine.Describe().dataFiles.size(), 3U + 6 * 333U);
    EXPECT_NE(AccessListOf(deepest), open);
}

TEST_F(Configure, SecuresFilesOfAnyName) {
    std::map<std::filesystem::path, std::wstring> open;
    for (const std::wstring& name : {std::wstring(L"a name  with blanks"), std::wstring(255, L'n'),
                                     std::wstring(L"\u0416\u4E2D\u20AC")}) {
        const std::filesystem::path path = Machine::DataDirectory() / L"ImageCache" / name;
        PutFile(path, "kept");
        OpenToEveryone(path);
        open[path] = AccessListOf(path);
    }
    ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation + SecuredWithImages() +
              RestOfConfigure);
    for (const auto& [path, list] : open) {
        EXPECT_NE(AccessListOf(path), list) << path;
    }
}

// Every path is expanded once more before it is used, those of files too.
TEST_F(Configure, CannotSecureAFileThatIsNamedLikeAVariable) {
    PutFile(Machine::DataDirectory() / L"ImageCache\\%TEMP%", "kept");
    const std::string secured = ReplaceIn(
        SecuredDirectories(true),
        {{ImageCacheDirectory + " \t - \tSuccess", ImageCacheDirectory + " \t - \tFailure"}});
    const std::string last =
        "Setting Child Inheritance DACLs on File/Directory " + ImageCacheDirectory + " \t - \t";
    ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation +
              secured.substr(0, secured.find(last)) + last + "Failure\n" +
              ResponseOf(QuickUninstall()));
    EXPECT_EQ(machine.Describe().dataFiles[L"ImageCache\\%TEMP%"], "kept");
}

// A machine with a victim outside of the product, to which links lead.
class ConfigureWithALink : public Configure {
protected:
    ConfigureWithALink() { MakeVictim(); }
    ~ConfigureWithALink() override { std::filesystem::remove_all(VictimDirectory); }

    void MakeVictim() {
        std::filesystem::remove_all(VictimDirectory);
        PutFile(VictimFile, "victim");
        OpenToEveryone(VictimFile);
        OpenToEveryone(VictimDirectory);
        victimAccess_ = AccessListOf(VictimFile);
        victimDirectoryAccess_ = AccessListOf(VictimDirectory);
    }

    // A second name for the victim's file.
    static void HardLink(const std::filesystem::path& path) {
        std::filesystem::create_directories(path.parent_path());
        ASSERT_TRUE(::CreateHardLinkW(path.c_str(), VictimFile.c_str(), nullptr));
    }

    void ExpectVictimUntouched() const {
        EXPECT_EQ(FileText(VictimFile), "victim");
        EXPECT_EQ(AccessListOf(VictimFile), victimAccess_);
        EXPECT_EQ(AccessListOf(VictimDirectory), victimDirectoryAccess_);
    }

    // The log on a link in the first directory, to the link.
    static std::string InsecureNimbus() {
        return DeletedSettings(true) + FilesOfAFirstInstallation +
               "\nSecureFilesDirectories.....\n" +
               Securing({.directory = NimbusDirectory, .childHasLink = true});
    }

    [[nodiscard]] std::string Response() const { return ResponseOf(QuickUninstall()); }

    static inline const std::filesystem::path VictimDirectory = L"C:\\Victim";
    static inline const std::filesystem::path VictimFile = VictimDirectory / L"file";

private:
    std::wstring victimAccess_;
    std::wstring victimDirectoryAccess_;
};

// ---- The security response

TEST_F(ConfigureWithALink, RespondsWithoutTheUninstallProgram) {
    machine.RemoveProgram(L"Unfinaset.exe");
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    ExpectRun(InsecureNimbus() +
              ResponseOf("First Run - " + UninstallProgram() + "  DOES NOT EXIST\n"));
}

TEST_F(ConfigureWithALink, RespondsThoughTheUninstallProgramDoesNotStart) {
    machine.RemoveProgram(L"Unfinaset.exe");
    PutFile(machine.ProgramDirectory() / L"Unfinaset.exe", "no program");
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    ExpectRun(InsecureNimbus() + ResponseOf("First Run - Starting " + UninstallProgram() +
                                            " Process\nFirst Run - Process " + UninstallProgram() +
                                            " Ended (False)\n"));
}

TEST_F(ConfigureWithALink, GivesTheUninstallProgramUpAfter60SecondsAndLeavesItRunning) {
    machine.InstallProgram(L"stand_in_companion.exe", L"Unfinaset.exe");
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    const FinishedRun run = machine.Run(L"/CONFIGURE");
    EXPECT_EQ(run.log,
              WholeLog(InsecureNimbus() + ResponseOf("First Run - Starting " + UninstallProgram() +
                                                     " Process\nFirst Run - Process " +
                                                     UninstallProgram() + " Ended (False)\n")));
    EXPECT_THAT(run.duration, testing::AllOf(testing::Ge(60s), testing::Lt(80s)));
    const MachineState after = machine.Describe();
    EXPECT_THAT(after.applications, ElementsAre(L"Unfinaset.exe"));
    EXPECT_EQ(after.settings, (std::map<std::wstring, std::wstring>{{L"FirstRun", L"0"}}));
    ExpectVictimUntouched();
}

TEST_F(ConfigureWithALink, EndsAtALinkAmongTheEntriesOfEachDirectory) {
    struct Row {
        std::string directory;
        std::string before;  // the rows that are secured until then
        bool reached;        // by the reset of what is below the first, links and all: meant
    };
    const std::string nimbus = Securing({.directory = NimbusDirectory});
    const std::string files = nimbus + Securing({.directory = ConfigurationDirectory});
    const std::string images =
        files + Securing({.directory = ImageCacheDirectory, .created = true});
    const Row rows[] = {
        {NimbusDirectory, "", false},
        {ConfigurationDirectory, nimbus, true},
        {ImageCacheDirectory, files, false},
        {ActivityLogDirectory, images, true},
    };
    for (const Row& row : rows) {
        for (const bool hard : {true, false}) {
            SCOPED_TRACE(row.directory + (hard ? ", hard link" : ", linked directory"));
            std::filesystem::remove_all(Machine::DataDirectory());
            MakeVictim();
            const std::filesystem::path path = std::filesystem::path(row.directory) / L"link";
            std::filesystem::create_directories(path.parent_path());
            std::optional<DirectoryLink> link;
            if (hard) {
                HardLink(path);
            } else {
                link.emplace(path, VictimDirectory);
            }
            machine.WriteStaleSettings();
            // The configuration directory is there already when the link lies in it.
            const bool there = row.directory == ConfigurationDirectory;
            const std::string copied =
                there ? ReplaceIn(FilesOfAFirstInstallation, {{"Success", "Failure"}})
                      : FilesOfAFirstInstallation;
            ExpectRun(DeletedSettings(true) + copied + "\nSecureFilesDirectories.....\n" +
                      row.before + Securing({.directory = row.directory, .childHasLink = true}) +
                      Response());
            // The rows behind it are not even created.
            EXPECT_EQ(std::filesystem::exists(ImageCacheDirectory), &row >= &rows[2]);
            EXPECT_EQ(std::filesystem::exists(ActivityLogDirectory), &row >= &rows[3]);
            EXPECT_EQ(FileText(VictimFile), "victim");
            if (!row.reached) {
                ExpectVictimUntouched();
            }
        }
    }
}

TEST_F(ConfigureWithALink, EndsAtALinkAtEachLevelOfADirectoryOfTheSettings) {
    const std::filesystem::path levels[] = {L"C:\\Elsewhere", L"C:\\Elsewhere\\one",
                                            L"C:\\Elsewhere\\one\\two"};
    const std::filesystem::path directory = levels[2];
    const std::string files =
        Securing({.directory = NimbusDirectory}) + Securing({.directory = ConfigurationDirectory});
    for (const bool image : {true, false}) {
        const wchar_t* name = image ? L"ImageCacheDirectory" : L"ActivityLogDirectory";
        machine.WriteTextSetting(name, directory.wstring());
        for (const std::filesystem::path& level : levels) {
            SCOPED_TRACE(level.string());
            std::filesystem::remove_all(Machine::DataDirectory());
            machine.WriteStaleSettings();
            // What is below the link lies with the victim.
            std::filesystem::create_directories(VictimDirectory /
                                                directory.lexically_relative(level));
            std::filesystem::create_directories(level.parent_path());
            const DirectoryLink link(level, VictimDirectory);
            ExpectRun(DeletedSettings(true) + FilesOfAFirstInstallation +
                      "\nSecureFilesDirectories.....\n" + files +
                      (image ? "" : Securing({.directory = ImageCacheDirectory, .created = true})) +
                      Securing({.directory = directory.string() + (image ? "" : "\\"),
                                .pathHasLink = true}) +
                      Response());
            ExpectVictimUntouched();
        }
        machine.RemoveSetting(name);
        std::filesystem::remove_all(levels[0]);
    }
}

TEST_F(ConfigureWithALink, EndsAtALinkInPlaceOfEachOfTheProductsDirectories) {
    const std::string nimbus = Securing({.directory = NimbusDirectory});
    const std::string linkInNimbus = Securing({.directory = NimbusDirectory, .childHasLink = true});
    const std::pair<std::filesystem::path, std::string> rows[] = {
        {Machine::DataDirectory(), Securing({.directory = NimbusDirectory, .pathHasLink = true})},
        {NimbusDirectory, Securing({.directory = NimbusDirectory, .pathHasLink = true})},
        // These two are entries of the first.
        {Machine::ConfigurationDirectory(), linkInNimbus},
        {Machine::DataDirectory() / L"Nimbus\\ActivityLog", linkInNimbus},
        {ImageCacheDirectory,
         nimbus + Securing({.directory = ConfigurationDirectory}) +
             Securing({.directory = ImageCacheDirectory, .pathHasLink = true})},
    };
    for (const auto& [path, securing] : rows) {
        SCOPED_TRACE(path.string());
        std::filesystem::remove_all(Machine::DataDirectory());
        MakeVictim();
        machine.WriteStaleSettings();
        std::filesystem::create_directories(path.parent_path());
        const DirectoryLink link(path, VictimDirectory);
        const bool there = path == Machine::ConfigurationDirectory();
        ExpectRun(DeletedSettings(true) +
                  (there ? ReplaceIn(FilesOfAFirstInstallation, {{"Success", "Failure"}})
                         : FilesOfAFirstInstallation) +
                  "\nSecureFilesDirectories.....\n" + securing + Response());
        ExpectVictimUntouched();
    }
}

TEST_F(ConfigureWithALink, EndsAtALinkAtOrAboveTheProgramDataDirectory) {
    const std::filesystem::path top = L"C:\\Elsewhere";
    const std::filesystem::path levels[] = {top, top / L"data"};
    const std::string before = Machine::DataDirectory().parent_path().string();
    const EnvironmentVariable programData(L"ProgramData", levels[1].wstring());
    for (const std::filesystem::path& level : levels) {
        SCOPED_TRACE(level.string());
        MakeVictim();
        machine.WriteStaleSettings();
        std::filesystem::create_directories(level.parent_path());
        std::filesystem::create_directories(VictimDirectory / levels[1].lexically_relative(level));
        const DirectoryLink link(level, VictimDirectory);
        ExpectRun(ReplaceIn(DeletedSettings(true) + FilesOfAFirstInstallation +
                                "\nSecureFilesDirectories.....\n" +
                                Securing({.directory = NimbusDirectory, .pathHasLink = true}),
                            {{before, levels[1].string()}}, /*everywhere=*/true) +
                  Response());
        ExpectVictimUntouched();
    }
    std::filesystem::remove_all(top);
}

// Meant; what it names is then reset like anything else below.
TEST_F(ConfigureWithALink, DoesNotSeeAHardLinkOneLevelDeeper) {
    const std::pair<std::string, std::string> rows[] = {
        {NimbusDirectory, SecuredDirectories(true)},
        {ConfigurationDirectory, SecuredDirectories(true)},
        {ImageCacheDirectory, SecuredWithImages()},
        {ActivityLogDirectory,
         ReplaceIn(SecuredDirectories(true), {{ActivityLogDirectory + " \t - \tSuccess",
                                               ActivityLogDirectory + " \t - \tFailure"}})},
    };
    for (const auto& [directory, log] : rows) {
        SCOPED_TRACE(directory);
        std::filesystem::remove_all(Machine::DataDirectory());
        MakeVictim();
        machine.WriteStaleSettings();
        HardLink(std::filesystem::path(directory) / L"below\\link");
        const bool there = directory == ConfigurationDirectory;
        ExpectRun(DeletedSettings(true) +
                  (there ? ReplaceIn(FilesOfAFirstInstallation, {{"Success", "Failure"}})
                         : FilesOfAFirstInstallation) +
                  log + RestOfConfigure);
        EXPECT_EQ(FileText(VictimFile), "victim");
    }
}

TEST_F(ConfigureWithALink, StartsAndDisablesNothingAfterwards) {
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    machine.WriteSetting(L"FinasetAction", 1 + 4 + 8 + 16);
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = machine.Describe();
    const FinishedRun run = machine.Run();
    EXPECT_EQ(run.log, WholeLog(StopSection(AskedToQuit + AllServicesStopped) + InsecureNimbus() +
                                Response()));
    EXPECT_EQ(run.exitCode, 0U);
    EXPECT_TRUE(Ended(application, 10s));
    for (auto& [name, service] : expected.services) {
        service.state = SERVICE_STOPPED;
    }
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.services, expected.services);
    EXPECT_THAT(after.applications, IsEmpty());
    EXPECT_EQ(after.settings, Configured(expected.settings));
    EXPECT_EQ(after.dataFiles, Installed(expected.dataFiles));
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"), IsEmpty());
    EXPECT_EQ(machine.StartsOf(L"Unfinaset.exe").size(), 1U);
    ExpectVictimUntouched();
}

}  // namespace
