#include "machine/expected_log.h"

#include "machine/machine.h"
#include "support/log_texts.h"

#include <algorithm>

namespace test {

namespace {

// Stands for a line end of a line feed alone until WholeLog makes its byte of it.
constexpr char BareLineEnd = '\v';

// An item with its verdict.
std::string Item(const std::string& text, bool success) {
    return text + "\t - \t" + (success ? "Success" : "Failure") + "\n";
}

std::string Created(const std::string& directory, bool created) {
    return Item("Creating Directory " + directory + " ", created);
}

std::string Copied(const std::string& name, bool overwriting, bool copied) {
    return Item("Copying File " + Machine::DriverDirectory().string() + "\\" + name + " -> " +
                    ConfigurationDirectory + name +
                    "     overwriting =" + (overwriting ? "true" : "false"),
                copied);
}

std::string Replaced(const std::string& name, bool deleted, bool copied) {
    return Item("Deleting File " + ConfigurationDirectory + name + " ", deleted) +
           Created(ConfigurationDirectory, false) + Copied(name, true, copied);
}

}  // namespace

std::string WholeLog(std::string_view sections) {
    std::string log = LogBegin;
    for (const char character : sections) {
        switch (character) {
            case '\n':
                log += "\r\n";
                break;
            case BareLineEnd:
                log += '\n';
                break;
            default:
                log += character;
        }
    }
    return log + LogEnd;
}

std::string StopSection(std::string_view lines) {
    return "\n------------------------\nStopping Processes.....\n------------------------\n" +
           std::string(lines);
}

std::string StartSection(std::string_view lines) {
    return "\n----------------------\nStarting Processes.....\n----------------------\n" +
           std::string(lines);
}

const std::string AskedToQuit =
    "Stopping Application ZEFIR.exe....with Window Title Tarsel\xAE Lumetra  Process Quitline.exe "
    "Started in context of ZEFIR.exe application to send QUIT Message - Success=True\n";
const std::string NotAskedToQuit =
    "Stopping Application ZEFIR.exe....with Window Title Tarsel\xAE Lumetra  Process Quitline.exe "
    "Started in context of ZEFIR.exe application to send QUIT Message - Success=False\n";
const std::string ApplicationNotFound =
    "Stopping Application ZEFIR.exe....with Window Title Tarsel\xAE Lumetra  application not "
    "found!\n";
const std::string NoServiceStopped =
    "Stopping brisko network service x64....stop failed!\n"
    "Stopping hvnetsvc....stop failed!\n"
    "Stopping Corvo....stop failed!\n"
    "Stopping TarselHubService....stop failed!\n"
    "Stopping Tarsel Nimbus Network Service....stop failed!\n"
    "Stopping Ardex....stop failed!\n"
    "Stopping Tarsel Metrics Service....stop failed!\n"
    "Stopping Tarsel Data Relay Service....stop failed!\n";
const std::string AllServicesStopped =
    "Stopping brisko network service x64....stopped\n"
    "Stopping hvnetsvc....stopped\n"
    "Stopping Corvo....stopped\n"
    "Stopping TarselHubService....stopped\n"
    "Stopping Tarsel Nimbus Network Service....stopped\n"
    "Stopping Ardex....stopped\n"
    "Stopping Tarsel Metrics Service....stopped\n"
    "Stopping Tarsel Data Relay Service....stopped\n";
const std::string AllStarted =
    "Starting Application BriskoLU.exe with command line -u....started\n"
    "Starting Ardex....started\n"
    "Starting Tarsel Metrics Service....started\n"
    "Starting Tarsel Nimbus Network Service....started\n"
    "Starting Tarsel Data Relay Service....started\n";
const std::string NothingStarted =
    "Starting Application BriskoLU.exe with command line -u....start failed!\n"
    "Starting Ardex....start failed!\n"
    "Starting Tarsel Metrics Service....start failed!\n"
    "Starting Tarsel Nimbus Network Service....start failed!\n"
    "Starting Tarsel Data Relay Service....start failed!\n";
const std::string DisableSection =
    "\n------------------------\nDisabling Processes....\n------------------------\n"
    "Disabling Service Corvo....Disabled\n"
    "Disabling Service TarselHubService....Disabled\n"
    "Disabling Service Ardex....Disabled\n"
    "Disabling Service Tarsel Metrics Service....Disabled\n"
    "Disabling Service Tarsel Nimbus Network Service....Disabled\n"
    "Disabling Service Tarsel Data Relay Service....Disabled\n";
const std::string FailedDisableSection =
    "\n------------------------\nDisabling Processes....\n------------------------\n"
    "Disabling Service Corvo....Disable  failed!\n"
    "Disabling Service TarselHubService....Disable  failed!\n"
    "Disabling Service Ardex....Disable  failed!\n"
    "Disabling Service Tarsel Metrics Service....Disable  failed!\n"
    "Disabling Service Tarsel Nimbus Network Service....Disable  failed!\n"
    "Disabling Service Tarsel Data Relay Service....Disable  failed!\n";

const std::string NimbusDirectory = (Machine::DataDirectory() / "Nimbus").string();
const std::string ConfigurationDirectory = NimbusDirectory + "\\ConfigurationFiles\\";
const std::string ImageCacheDirectory = (Machine::DataDirectory() / "ImageCache").string();
const std::string ActivityLogDirectory = NimbusDirectory + "\\ActivityLog\\";

std::string DeletedSettings(bool directoryWasSet) {
    return "\n-------------------------------------------------------\n"
           "Setting Up Configuration Settings and Environment....\n"
           "-------------------------------------------------------\n"
           "Delete Registry Settings.....\n" +
           Item(
               "Deleting Registry Setting "
               "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network "
               "Service\\Parameters\\ConfigFileDirectory= ",
               directoryWasSet) +
           Item("Deleting Registry Setting HKEY_LOCAL_MACHINE\\SOFTWARE\\Halvane\\SAP\\= ", true) +
           "\nCopyFiles.....\n";
}

const std::string FilesOfAFirstInstallation =
    Created(ConfigurationDirectory, true) + Copied("user.xml", false, true) +
    Replaced("oem.xml", false, true) + Replaced("vx.stg", false, true);
const std::string FilesOfAReinstallation =
    Created(ConfigurationDirectory, false) + Copied("user.xml", false, false) +
    Replaced("oem.xml", true, true) + Replaced("vx.stg", true, true);
const std::string FilesOfNoInstallation =
    Created(ConfigurationDirectory, true) + Copied("user.xml", false, false) +
    Replaced("oem.xml", false, false) + Replaced("vx.stg", false, false);

std::string Securing(const SecuringOf& row) {
    std::string lines =
        Created(row.directory, row.created) +
        Item("Verifying File/Directory " + row.directory + " has NO links", !row.pathHasLink);
    if (row.pathHasLink) {
        return lines;
    }
    lines += Item("Verifying Children Files of Directory " + row.directory + " has NO links",
                  !row.childHasLink);
    if (row.childHasLink) {
        return lines;
    }
    return lines + Item("Setting DACLs on File/Directory " + row.directory + " ", true) +
           Item("Setting Child Inheritance DACLs on File/Directory " + row.directory + " ", true);
}

std::string SecuredDirectories(bool firstTime) {
    return "\nSecureFilesDirectories.....\n" + Securing({.directory = NimbusDirectory}) +
           Securing({.directory = ConfigurationDirectory}) +
           Securing({.directory = ImageCacheDirectory, .created = firstTime}) +
           Securing({.directory = ActivityLogDirectory, .created = firstTime});
}

std::string SettingsAndHardware(const std::string& foundAdapters, const std::string& features) {
    return "\nWrite Registry Settings.....\n"
           "Computing Tarsel HW Bitmask\n" +
           foundAdapters + "Enabling Features by Tarsel HW Bitmask\n" + features;
}

std::string ScheduledTasks(const TasksOf& tasks) {
    const std::string lines = "   Creating Task Name [VxIdle Task] for Process [" +
                              tasks.directory + "\\VxIdleTask.exe]....\n" + tasks.creationError +
                              "     ====> " + (tasks.creationError.empty() ? "SUCCESS" : "FAILED") +
                              "\n   Deleting Task Name [Tarsel Lumetra Startup Task]....\n" +
                              tasks.deletionError + "     ====> " +
                              (tasks.deletionFails ? "FAILED" : "SUCCESS") + "\n";
    std::string section = lines;
    std::ranges::replace(section, '\n', BareLineEnd);
    return "\nScheduling Tasks.....\n" + section;
}

std::string RestOfConfigureWith(const std::string& foundAdapters, const std::string& features) {
    return SettingsAndHardware(foundAdapters, features) + ScheduledTasks({});
}

const std::string RestOfConfigure = RestOfConfigureWith("", "");

const std::string FirstConfigureSection =
    DeletedSettings(true) + FilesOfAFirstInstallation + SecuredDirectories(true) + RestOfConfigure;
const std::string LaterConfigureSection =
    DeletedSettings(false) + FilesOfAReinstallation + SecuredDirectories(false) + RestOfConfigure;
const std::string EmptyConfigureSection =
    DeletedSettings(false) + FilesOfNoInstallation + SecuredDirectories(true) + RestOfConfigure;

}  // namespace test
