#pragma once

#include <string>
#include <string_view>

// The log that a run on the machine is to write, put together from its sections. Texts have "\n"
// for the log's line end until WholeLog makes its bytes of them.

namespace test {

// The bytes of the whole log of a run that has these sections.
std::string WholeLog(std::string_view sections);

std::string StopSection(std::string_view lines);
std::string StartSection(std::string_view lines);

// How the item of the application ends.
extern const std::string AskedToQuit;
extern const std::string NotAskedToQuit;
extern const std::string ApplicationNotFound;

extern const std::string AllServicesStopped;
extern const std::string NoServiceStopped;
extern const std::string AllStarted;
extern const std::string NothingStarted;

extern const std::string DisableSection;
extern const std::string FailedDisableSection;

// ---- The section of the configure action

// Its banner, and the deletion of settings: whether there was a directory to forget.
std::string DeletedSettings(bool directoryWasSet);

// The copying of the three files.
extern const std::string FilesOfAFirstInstallation;
extern const std::string FilesOfAReinstallation;
extern const std::string FilesOfNoInstallation;  // no shipped files, and no directory

// What securing does to one directory.
struct SecuringOf {
    std::string directory;
    bool created = false;
    bool pathHasLink = false;
    bool childHasLink = false;
};

// The lines of one directory, to their end or to the link.
std::string Securing(const SecuringOf& row);

// The product's four directories as the program names them, with backslashes as it has them.
extern const std::string NimbusDirectory;
extern const std::string ConfigurationDirectory;
extern const std::string ImageCacheDirectory;
extern const std::string ActivityLogDirectory;

// The copying and securing on a machine without links; what is created is in the files' lines, the
// image cache and the activity log: both the first time.
std::string SecuredDirectories(bool firstTime);

// What stands between the securing and the scheduled tasks, with the lines of adapters that are
// found and of their features.
std::string SettingsAndHardware(const std::string& foundAdapters = {},
                                const std::string& features = {});

// How the scheduled tasks fare in a program directory.
struct TasksOf {
    std::string directory = "C:\\Program Files\\Tarsel\\Lumetra";
    std::string creationError{};  // its line, if it fails
    std::string deletionError =   // its line; there most often is no task to delete
        "     ====> DeleteScheduledTask:[ERROR] Tarsel Lumetra Startup Task GetLastError "
        "0x00000000\n";
    bool deletionFails = false;
};

// Their lines, which end in a bare line feed, with the heading.
std::string ScheduledTasks(const TasksOf& tasks);

// All that follows on secured directories, in the product's program directory: on a machine without
// the adapters that are looked for, and with the lines that they bring.
extern const std::string RestOfConfigure;
std::string RestOfConfigureWith(const std::string& foundAdapters, const std::string& features);

// The whole section of a first installation, of a later one, and of a machine that has nothing of
// the product, all without links.
extern const std::string FirstConfigureSection;
extern const std::string LaterConfigureSection;
extern const std::string EmptyConfigureSection;

}  // namespace test
