// Whole runs of the configure action, on machines in all kinds of states.

#include "fs/file_table.h"
#include "fs/path_helpers.h"
#include "fs/secured_directories.h"
#include "machine/machine.h"
#include "support/call_log.h"
#include "support/environment_variable.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/on_wine.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace test;  // the expected log
using enum test::Verdict;
using testing::ElementsAre;
using testing::IsEmpty;

// The product's directories as the program names them.
const std::string NimbusDirectory = (Machine::DataDirectory() / "Nimbus").string();
const std::string ConfigurationDirectory = NimbusDirectory + "\\ConfigurationFiles\\";
const std::string ImageCacheDirectory = (Machine::DataDirectory() / "ImageCache").string();

// The access control list of a path. Wine makes it up from the file's mode: different lists can
// read back the same.
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

// Gives everyone full access to a path. This list reads back differently from any that the product
// sets or resets, even on Wine.
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

class Configure : public testing::Test {
protected:
    Configure() { machine.InstallProduct(); }

    // Runs the action, and expects its log, and no change except to the settings and the data
    // files, which are then `files`, or the existing ones with the shipped ones.
    void ExpectRun(Course course = {}, const std::optional<DataFiles>& files = {}) {
        course.actions = 4;
        machine.WriteSetting(L"FirstRun", 1);
        const MachineState before = machine.Describe();
        const FinishedRun run = machine.Run(L"/CONFIGURE");
        EXPECT_EQ(run.log, LogOf(course));
        EXPECT_EQ(run.exitCode, 0U);
        const MachineState after = machine.Describe();
        EXPECT_EQ(after.services, before.services);
        EXPECT_EQ(after.applications, before.applications);
        EXPECT_EQ(after.settings, Configured(before.settings));
        EXPECT_EQ(after.dataFiles, files ? *files : WithShippedFiles(before.dataFiles));
        EXPECT_FALSE(after.staleKey);
    }

    const Course later = {.staleSettings = false, .configured = true};
    Machine machine;
};

TEST_F(Configure, KeepsTheUsersFileAndReplacesTheOthersOnAReinstallation) {
    ExpectRun();
    for (const auto& [name, content] : machine.Describe().dataFiles) {
        PutFile(Machine::DataDirectory() / name, "edited");
    }
    ExpectRun(later);
    EXPECT_EQ(FileText(Machine::ConfigurationDirectory() / "user.xml"), "edited");
}

TEST_F(Configure, LeavesTheSameMachineHoweverOftenItRuns) {
    ExpectRun();
    for (const SecuredDirectory& directory : SecuredDirectoryTable) {
        EXPECT_TRUE(std::filesystem::is_directory(TargetOf(directory))) << TargetOf(directory);
    }
    const MachineState first = machine.Describe();
    for (int more = 0; more < 2; ++more) {
        ExpectRun(later);
        const MachineState again = machine.Describe();
        EXPECT_EQ(again.settings, first.settings);
        EXPECT_EQ(again.dataFiles, first.dataFiles);
        EXPECT_EQ(again.staleKey, first.staleKey);
        EXPECT_EQ(again.hardwareBitmask, first.hardwareBitmask);
        EXPECT_EQ(again.services, first.services);
    }
}

TEST_F(Configure, GoesOnWithoutTheDriverDirectory) {
    RemoveAll(Machine::DriverDirectory());
    for (const FileOperation& file : FileTable) {
        std::filesystem::remove(ExpandEnvironmentPath(file.sourcePath));  // one that is elsewhere
    }
    ExpectRun({.shipped = std::set<std::wstring>()}, DataFiles());
}

TEST_F(Configure, GoesOnAfterAReadOnlyDestination) {
    ExpectRun();
    const std::filesystem::path file = Machine::ConfigurationDirectory() / L"oem.xml";
    PutFile(file, "read-only");
    ::SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    // Under Wine, root may replace it.
    const std::filesystem::path probe = Machine::ConfigurationDirectory() / L"vx.stg";
    ::SetFileAttributesW(probe.c_str(), FILE_ATTRIBUTE_READONLY);
    const bool replaceable = ::CopyFileW((Machine::DriverDirectory() / L"vx.stg").c_str(),
                                         probe.c_str(), FALSE) != FALSE;
    ::SetFileAttributesW(probe.c_str(), FILE_ATTRIBUTE_NORMAL);

    DataFiles files = WithShippedFiles({});
    files[L"Nimbus\\ConfigurationFiles\\oem.xml"] = replaceable ? "shipped oem.xml" : "read-only";
    Course course = later;
    course.verdicts = {{"Deleting File " + file.string(), Bad},
                       {" -> " + file.string(), replaceable ? Good : Bad}};
    ExpectRun(course, files);
    ::SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Configure, GoesOnAfterADestinationThatIsADirectory) {
    const std::filesystem::path path = Machine::ConfigurationDirectory() / L"oem.xml";
    std::filesystem::create_directories(path);
    DataFiles files = WithShippedFiles({});
    files.erase(L"Nimbus\\ConfigurationFiles\\oem.xml");
    ExpectRun({.verdicts = {{"Deleting File " + path.string(), Bad}, {" -> " + path.string(), Bad}},
               .there = {path.string()}},
              files);
    EXPECT_TRUE(std::filesystem::is_directory(path));
}

// The value that names a directory, and the directory that is then secured.
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
    // What the program appends to the directory of each value.
    const std::pair<std::wstring, std::string> names[] = {{L"ImageCacheDirectory", ""},
                                                          {L"ActivityLogDirectory", "\\"}};
    for (const DirectoryValue& row : rows) {
        for (const auto& [name, separator] : names) {
            SCOPED_TRACE(row.name);
            RemoveAll(Machine::DataDirectory());
            RemoveAll(L"C:\\Elsewhere");
            machine.WriteStaleSettings();
            machine.WriteTextSetting(name, row.text, row.type);
            Course course;
            if (!row.secured.empty()) {
                course.directories = {{name, row.text}};
                EXPECT_TRUE(IsThereAfter(course, row.secured + separator));
            }
            ExpectRun(course);
            EXPECT_EQ(std::filesystem::is_directory(row.secured), !row.secured.empty());
            machine.RemoveSetting(name);
        }
    }
    RemoveAll(L"C:\\Elsewhere");
}

TEST_F(Configure, CannotSecureADirectoryThatCannotExist) {
    const std::wstring longText = L"C:\\" + std::wstring(3997, L'x');
    const std::wstring texts[] = {L"Q:\\nowhere", longText, L""};
    for (const std::wstring& text : texts) {
        for (const bool image : {true, false}) {
            if (!image && text.empty()) {
                continue;  // that is a directory: see below
            }
            SCOPED_TRACE(text.size());
            RemoveAll(Machine::DataDirectory());
            machine.WriteStaleSettings();
            const std::wstring name = image ? L"ImageCacheDirectory" : L"ActivityLogDirectory";
            machine.WriteTextSetting(name, text);
            // What remains of a text that is too long is up to the platform.
            const std::wstring shown =
                ExpandEnvironmentPath(ExpandEnvironmentPath(image ? text : text + L"\\"));
            const std::string directory = "Directory " + Narrow(shown) + " \t";
            ExpectRun({.verdicts = {{"Creating " + directory, Bad},
                                    {"Setting DACLs on File/" + directory, Bad}},
                       .directories = {{name, text}}});
            machine.RemoveSetting(name);
        }
    }
}

// An empty activity log directory means the root of the program's drive. Not to be tried on a drive
// that matters.
TEST_F(Configure, SecuresTheRootOfTheCurrentDriveForAnEmptyActivityLogDirectory) {
    PutFile(L"C:\\Sandbox\\below\\file", "kept");
    {
        const Drive drive(L'S', L"C:\\Sandbox");
        machine.WriteTextSetting(L"ActivityLogDirectory", L"");
        ExpectRun({.directories = {{L"ActivityLogDirectory", L""}}});
    }
    EXPECT_EQ(FileText(L"C:\\Sandbox\\below\\file"), "kept");
    RemoveAll(L"C:\\Sandbox");
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
        RemoveAll(Machine::DataDirectory());
        machine.WriteStaleSettings();
        machine.WriteTextSetting(L"ConfigFileDirectory", text, type);
        ExpectRun();
    }
}

// Everything below a directory is reset, unless that has any attribute beside being a directory:
// then it is skipped, which counts as secured.
TEST_F(Configure, ResetsWhatIsBelowADirectoryUnlessThatHasAnotherAttribute) {
    const std::filesystem::path images = Machine::DataDirectory() / L"ImageCache";
    const std::filesystem::path paths[] = {images / L"file", images / L"below",
                                           images / L"below\\file"};
    for (const bool hidden : {true, false}) {
        SCOPED_TRACE(hidden);
        RemoveAll(Machine::DataDirectory());
        machine.WriteStaleSettings();
        MakePlainDirectory(images);
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
        ExpectRun({.there = {ImageCacheDirectory}});
        EXPECT_NE(AccessListOf(images), open);
        for (std::size_t i = 0; i < before.size(); ++i) {
            EXPECT_EQ(AccessListOf(paths[i]) == before[i], hidden) << paths[i];
        }
    }
}

TEST_F(Configure, SecuresATreeOf2000EntriesInSixLevels) {
    std::filesystem::path level = Machine::DataDirectory() / L"ImageCache";
    MakePlainDirectory(level);
    for (int depth = 0; depth < 6; ++depth) {
        for (int number = 0; number < 333; ++number) {
            PutFile(level / (L"file " + std::to_wstring(number)), "");
        }
        level /= L"below";
    }
    const std::filesystem::path deepest = level.parent_path() / L"file 332";
    OpenToEveryone(deepest);
    const std::wstring open = AccessListOf(deepest);
    ExpectRun({.there = {ImageCacheDirectory}});
    EXPECT_EQ(machine.Describe().dataFiles.size(),
              WithShippedFiles({}).size() + 6 * std::size_t{333});
    EXPECT_NE(AccessListOf(deepest), open);
}

TEST_F(Configure, SecuresFilesOfAnyName) {
    MakePlainDirectory(Machine::DataDirectory() / L"ImageCache");
    std::map<std::filesystem::path, std::wstring> open;
    const std::size_t longest = OnWine() ? 255 : 200;  // Windows counts the whole path
    for (const std::wstring& name :
         {std::wstring(L"a name  with blanks"), std::wstring(longest, L'n'),
          std::wstring(L"\u0416\u4E2D\u20AC")}) {
        const std::filesystem::path path = Machine::DataDirectory() / L"ImageCache" / name;
        PutFile(path, "kept");
        OpenToEveryone(path);
        open[path] = AccessListOf(path);
    }
    ExpectRun({.there = {ImageCacheDirectory}});
    for (const auto& [path, list] : open) {
        EXPECT_NE(AccessListOf(path), list) << path;
    }
}

// Every path is expanded once more before it is used, those of files too.
TEST_F(Configure, CannotSecureAFileThatIsNamedLikeAVariable) {
    PutFile(Machine::DataDirectory() / L"ImageCache\\%TEMP%", "kept");
    ExpectRun({.verdicts = {{"Setting Child Inheritance DACLs on File/Directory " +
                                 ImageCacheDirectory + " ",
                             Bad}},
               .there = {ImageCacheDirectory}});
    EXPECT_EQ(machine.Describe().dataFiles[L"ImageCache\\%TEMP%"], "kept");
}

// A machine with a victim outside the product, to which links lead.
class ConfigureWithALink : public Configure {
protected:
    ConfigureWithALink() { MakeVictim(); }
    ~ConfigureWithALink() override { RemoveAll(VictimDirectory); }

    void MakeVictim() {
        RemoveAll(VictimDirectory);
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

    // An entry of a directory is a link, or a level of its path is.
    static Verdicts LinkIn(const std::string& directory) {
        return {{"Verifying Children Files of Directory " + directory + " has", Bad}};
    }
    static Verdicts LinkAt(const std::string& directory) {
        return {{"Verifying File/Directory " + directory + " has", Bad}};
    }

    // A link in the first directory, and the result of the uninstall program.
    static Course InsecureNimbus(Verdict uninstallProgram = Good) {
        return {.verdicts = {{"Verifying Children", Bad}, {"Unfinaset.exe", uninstallProgram}},
                .there = {NimbusDirectory}};
    }

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
    ExpectRun(InsecureNimbus(Absent));
}

TEST_F(ConfigureWithALink, RespondsEvenIfTheUninstallProgramDoesNotStart) {
    machine.RemoveProgram(L"Unfinaset.exe");
    PutFile(machine.ProgramDirectory() / L"Unfinaset.exe", "no program");
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    ExpectRun(InsecureNimbus(Bad));
}

TEST_F(ConfigureWithALink, GivesTheUninstallProgramUpAfter60SecondsAndLeavesItRunning) {
    machine.InstallProgram(L"stand_in_companion.exe", L"Unfinaset.exe");
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    const FinishedRun run = machine.Run(L"/CONFIGURE");
    Course course = InsecureNimbus(Bad);
    course.actions = 4;
    EXPECT_EQ(run.log, LogOf(course));
    EXPECT_THAT(run.duration, testing::AllOf(testing::Ge(60s), testing::Lt(80s)));
    const MachineState after = machine.Describe();
    EXPECT_THAT(after.applications, ElementsAre(L"Unfinaset.exe"));
    EXPECT_EQ(after.settings, Configured({}));
    ExpectVictimUntouched();
}

TEST_F(ConfigureWithALink, EndsAtALinkAmongTheEntriesOfEachDirectory) {
    std::vector<std::string> before;  // the directories secured until then
    for (const SecuredDirectory& row : SecuredDirectoryTable) {
        const std::string directory = TargetOf(row);
        for (const bool hard : {true, false}) {
            SCOPED_TRACE(directory + (hard ? ", hard link" : ", linked directory"));
            RemoveAll(Machine::DataDirectory());
            MakeVictim();
            const std::filesystem::path path = std::filesystem::path(directory) / L"link";
            std::filesystem::create_directories(path.parent_path());
            std::optional<DirectoryLink> link;
            if (hard) {
                HardLink(path);
            } else {
                link.emplace(path, VictimDirectory);
            }
            machine.WriteStaleSettings();
            const Course course = {.verdicts = LinkIn(directory), .there = {directory}};
            ExpectRun(course);
            // The rows after it are not even created.
            for (const SecuredDirectory& each : SecuredDirectoryTable) {
                EXPECT_EQ(std::filesystem::exists(TargetOf(each)),
                          IsThereAfter(course, TargetOf(each)))
                    << TargetOf(each);
            }
            EXPECT_EQ(FileText(VictimFile), "victim");
            // Resetting what is below one reaches it first, links and all, on purpose.
            if (std::ranges::none_of(before, [&](const std::string& each) {
                    return directory.starts_with(each + "\\");
                })) {
                ExpectVictimUntouched();
            }
        }
        before.push_back(directory);
    }
    EXPECT_FALSE(IsThereAfter({.verdicts = LinkIn(before[0])}, ImageCacheDirectory));
}

TEST_F(ConfigureWithALink, EndsAtALinkAtEachLevelOfADirectoryOfTheSettings) {
    const std::filesystem::path levels[] = {L"C:\\Elsewhere", L"C:\\Elsewhere\\one",
                                            L"C:\\Elsewhere\\one\\two"};
    const std::filesystem::path directory = levels[2];
    for (const bool image : {true, false}) {
        const wchar_t* name = image ? L"ImageCacheDirectory" : L"ActivityLogDirectory";
        machine.WriteTextSetting(name, directory.wstring());
        for (const std::filesystem::path& level : levels) {
            SCOPED_TRACE(level.string());
            RemoveAll(Machine::DataDirectory());
            machine.WriteStaleSettings();
            // What is below the link belongs to the victim.
            std::filesystem::create_directories(VictimDirectory /
                                                directory.lexically_relative(level));
            std::filesystem::create_directories(level.parent_path());
            const DirectoryLink link(level, VictimDirectory);
            ExpectRun({.verdicts = LinkAt(directory.string() + (image ? "" : "\\")),
                       .there = {directory.string()},
                       .directories = {{name, directory.wstring()}}});
            ExpectVictimUntouched();
        }
        machine.RemoveSetting(name);
        RemoveAll(levels[0]);
    }
}

TEST_F(ConfigureWithALink, EndsAtALinkInPlaceOfEachOfTheProductsDirectories) {
    const std::pair<std::filesystem::path, Verdicts> rows[] = {
        {Machine::DataDirectory(), LinkAt(NimbusDirectory)},
        {NimbusDirectory, LinkAt(NimbusDirectory)},
        // These two are entries of the first.
        {Machine::ConfigurationDirectory(), LinkIn(NimbusDirectory)},
        {Machine::DataDirectory() / L"Nimbus\\ActivityLog", LinkIn(NimbusDirectory)},
        {ImageCacheDirectory, LinkAt(ImageCacheDirectory)},
    };
    for (const auto& [path, verdicts] : rows) {
        SCOPED_TRACE(path.string());
        RemoveAll(Machine::DataDirectory());
        MakeVictim();
        machine.WriteStaleSettings();
        std::filesystem::create_directories(path.parent_path());
        const DirectoryLink link(path, VictimDirectory);
        ExpectRun({.verdicts = verdicts, .there = {path.string()}});
        ExpectVictimUntouched();
    }
}

TEST_F(ConfigureWithALink, EndsAtALinkAtOrAboveTheProgramDataDirectory) {
    const std::filesystem::path top = L"C:\\Elsewhere";
    const std::filesystem::path levels[] = {top, top / L"data"};
    const EnvironmentVariable programData(L"ProgramData", levels[1].wstring());
    for (const std::filesystem::path& level : levels) {
        SCOPED_TRACE(level.string());
        MakeVictim();
        machine.WriteStaleSettings();
        std::filesystem::create_directories(level.parent_path());
        std::filesystem::create_directories(VictimDirectory / levels[1].lexically_relative(level));
        const DirectoryLink link(level, VictimDirectory);
        ExpectRun(
            {.verdicts = {{"Verifying File/Directory ", Bad}}, .there = {levels[1].string()}});
        ExpectVictimUntouched();
    }
    RemoveAll(top);
}

// On purpose; its target is then reset like anything else below.
TEST_F(ConfigureWithALink, DoesNotSeeAHardLinkOneLevelDeeper) {
    for (const SecuredDirectory& row : SecuredDirectoryTable) {
        const std::string directory = TargetOf(row);
        SCOPED_TRACE(directory);
        RemoveAll(Machine::DataDirectory());
        MakeVictim();
        machine.WriteStaleSettings();
        HardLink(std::filesystem::path(directory) / L"below\\link");
        ExpectRun({.there = {directory}});
        EXPECT_EQ(FileText(VictimFile), "victim");
    }
}

TEST_F(ConfigureWithALink, StartsAndDisablesNothingAfterwards) {
    HardLink(Machine::DataDirectory() / L"Nimbus\\link");
    machine.WriteSetting(L"FinasetAction", 1 + 4 + 8 + 16);
    const Utils::KernelHandle application = machine.StartProduct();
    MachineState expected = machine.Describe();
    const FinishedRun run = machine.Run();
    EXPECT_EQ(run.log, LogOf(InsecureNimbus()));
    EXPECT_EQ(run.exitCode, 0U);
    EXPECT_TRUE(Ended(application, 10s));
    for (auto& [name, service] : expected.services) {
        service.state = SERVICE_STOPPED;
    }
    const MachineState after = machine.Describe();
    EXPECT_EQ(after.services, expected.services);
    EXPECT_THAT(after.applications, IsEmpty());
    EXPECT_EQ(after.settings, Configured(expected.settings));
    EXPECT_EQ(after.dataFiles, WithShippedFiles(expected.dataFiles));
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"), IsEmpty());
    EXPECT_EQ(machine.StartsOf(L"Unfinaset.exe").size(), 1U);
    ExpectVictimUntouched();
}

}  // namespace
