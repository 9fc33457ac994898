#include "support/expected_log.h"

#include "config/path_resolvers.h"
#include "config/settings_tables.h"
#include "fs/file_table.h"
#include "fs/path_helpers.h"
#include "fs/secured_directories.h"
#include "hw/feature_table.h"
#include "proc/process_lists.h"
#include "support/call_log.h"
#include "support/fake_adapters.h"
#include "tasks/task_table.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <span>

namespace test {

namespace {

using enum Verdict;

constexpr char Success[] = "Success\r\n";
constexpr char Failure[] = "Failure\r\n";

// The marks around what may differ.
constexpr char MarkBefore = '\1';
constexpr char MarkBehind = '\2';

std::string Varying(const std::string& text) {
    return MarkBefore + text + MarkBehind;
}

std::string Expanded(const std::wstring& path) {
    return Narrow(ExpandEnvironmentPath(path));
}

std::wstring Resolved(const std::function<std::wstring(const std::wstring&)>& resolver,
                      const std::wstring& name, const Course& course) {
    const auto* own = resolver ? resolver.target<PathResolver>() : nullptr;
    if (own == nullptr) {
        return resolver ? resolver(name) : name;
    }
    const auto moved = course.directories.find(own->directoryName);
    std::wstring path = moved == course.directories.end() ? own->defaultDirectory : moved->second;
    if (own->separatorBeforeEmptyName || !name.empty()) {
        path += L"\\" + name;
    }
    return ExpandEnvironmentPath(path);
}

std::string WithoutSeparator(std::string path) {
    path.erase(path.find_last_not_of('\\') + 1);
    return path;
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('\\') + 1);
}

// Follows the course of a run, and tracks what is on the disk.
class Walk {
public:
    explicit Walk(const Course& course) : course_(course) {
        for (const std::string& path : course.there) {
            Put(path);
        }
        if (course.configured) {
            for (const FileOperation& file : FileTable) {
                Put(IsShipped(file) ? DestinationOf(file, course)
                                    : DirectoryOf(DestinationOf(file, course)));
            }
            for (const SecuredDirectory& directory : SecuredDirectoryTable) {
                Put(TargetOf(directory, course));
            }
        }
        if (course.actions & 1) {
            Stop();
        }
        bool secured = true;
        if (course.actions & 4) {
            configuring_ = true;
            secured = Configure();
            configuring_ = false;
        }
        if ((course.actions & 8) && secured) {
            Start();
        }
        if ((course.actions & 16) && secured) {
            Disable();
        }
    }

    [[nodiscard]] const std::vector<LogItem>& Items() const { return items_; }

    [[nodiscard]] bool IsThere(const std::string& path) const {
        return there_.contains(WithoutSeparator(path));
    }

private:
    [[nodiscard]] bool IsShipped(const FileOperation& file) const {
        return !course_.shipped || course_.shipped->contains(file.fileName);
    }

    void Put(const std::string& path) {
        for (std::string level = WithoutSeparator(path); !level.empty();
             level = WithoutSeparator(DirectoryOf(level))) {
            there_.insert(level);
        }
    }

    // ---- The pieces of the log

    void Heading(const std::string& text) {
        if (!cutOff_) {
            items_.push_back({ItemKind::Heading, text + "\r\n"});
        }
    }

    void Banner(std::size_t dashes, const std::string& title) {
        const std::string line(dashes, '-');
        Heading("\r\n" + line + "\r\n" + title + "\r\n" + line);
    }

    [[nodiscard]] Verdict VerdictOn(const std::string& text, Verdict otherwise) const {
        for (const auto& [part, verdict] : course_.verdicts) {
            if (text.find(part) != std::string::npos) {
                otherwise = verdict;  // the last one counts
            }
        }
        return otherwise;
    }

    Verdict Item(const std::string& text, const std::vector<std::string>& ends,
                 Verdict otherwise = Good, ItemKind kind = ItemKind::Item) {
        if (cutOff_) {
            return Cut;
        }
        const Verdict verdict = VerdictOn(Unmarked(text), otherwise);
        cutOff_ = configuring_ && verdict == Cut;  // no more of that action
        if (!ends.empty() || verdict != Bad) {
            items_.push_back({kind, text, ends, verdict});
        }
        return verdict;
    }

    // ---- The steps

    void Stop() {
        Banner(24, "Stopping Processes.....");
        for (const auto& [kind, name, title] : StopList) {
            if (kind == EntryKind::Service) {
                Item("Stopping " + Narrow(name) + "....", {"stopped\r\n", "stop failed!\r\n"});
            } else if (kind == EntryKind::QuitApp) {
                const std::string asked = " Process Quitline.exe Started in context of " +
                                          Narrow(name) +
                                          " application to send QUIT Message - Success=";
                Item("Stopping Application " + Narrow(name) + "....with Window Title " +
                         Narrow(title) + " ",
                     {asked + "True\r\n", asked + "False\r\n", " application not found!\r\n"});
            }
        }
    }

    bool Configure() {
        Banner(55, "Setting Up Configuration Settings and Environment....");
        Heading("Delete Registry Settings.....");
        for (const RegistrySetting& setting : DeleteList) {
            Item("Deleting Registry Setting " + Narrow(SettingDisplayText(setting)) + " \t - \t",
                 {Success, Failure},
                 setting.valueName.empty() || course_.staleSettings ? Good : Bad);
        }
        Heading("\r\nCopyFiles.....");
        for (const FileOperation& file : FileTable) {
            CopyFile(file);
        }
        Heading("\r\nSecureFilesDirectories.....");
        if (!SecureDirectories()) {
            Respond();
            return false;
        }
        Heading("\r\nWrite Registry Settings.....");
        for (const RegistrySetting& setting : WriteList) {
            Item("Writing Registry Setting " + Narrow(SettingDisplayText(setting)) + " \t - \t",
                 {Success, Failure});
        }
        EnableFeatures();
        ScheduleTasks();
        return !cutOff_;
    }

    void CreateDirectory(const std::string& path) {
        const bool missing = !WithoutSeparator(path).empty() && !IsThere(path);
        if (Item("Creating Directory " + Varying(path) + " \t - \t", {Success, Failure},
                 missing ? Good : Bad) == Good) {
            Put(path);
        }
    }

    void CopyFile(const FileOperation& file) {
        const std::string path = DestinationOf(file, course_);
        if (file.overwrite && Item("Deleting File " + Varying(path) + " \t - \t",
                                   {Success, Failure}, IsThere(path) ? Good : Bad) == Good) {
            there_.erase(path);
        }
        CreateDirectory(DirectoryOf(path));
        const bool copies = IsShipped(file) && !path.empty() && (file.overwrite || !IsThere(path));
        if (Item("Copying File " + Varying(Expanded(file.sourcePath) + " -> " + path) +
                     "     overwriting =" + (file.overwrite ? "true" : "false") + "\t - \t",
                 {Success, Failure}, copies ? Good : Bad) == Good) {
            Put(path);
        }
    }

    bool SecureDirectories() {
        return std::ranges::all_of(SecuredDirectoryTable, [this](const auto& directory) {
            const std::string path = TargetOf(directory, course_);
            CreateDirectory(path);
            const auto secures = [this](const std::string& text) {
                return Item(text, {Success, Failure}, Good, ItemKind::Securing) != Bad;
            };
            return secures("Verifying File/Directory " + Varying(path) + " has NO links\t - \t") &&
                   secures("Verifying Children Files of Directory " + Varying(path) +
                           " has NO links\t - \t") &&
                   secures("Setting DACLs on File/Directory " + Varying(path) + " \t - \t") &&
                   (!directory.applyToChildren ||
                    secures("Setting Child Inheritance DACLs on File/Directory " + Varying(path) +
                            " \t - \t"));
        });
    }

    void Respond() {
        Banner(26, "Uninstalling Product.....");
        if (!course_.programDirectory.empty()) {
            const std::string program = Varying(course_.programDirectory + "\\") + "Unfinaset.exe";
            const auto line = [this](const std::string& text) {
                items_.push_back({ItemKind::Optional, text});
            };
            const Verdict verdict = VerdictOn("Unfinaset.exe", Good);
            if (verdict == Absent) {
                line("First Run - " + program + "  DOES NOT EXIST\r\n");
            } else {
                line("First Run - Starting " + program + " Process\r\n");
                line("First Run - Process " + program +
                     (verdict == Good ? " Ended (True)\r\n" : " Ended (False)\r\n"));
            }
        }
        items_.push_back({ItemKind::Item,
                          "Security Vulnerability Securing Directories due to Failure Setting ACLs "
                          "or Links Detected - Uninstalling\r\n"});
    }

    void EnableFeatures() {
        Heading("Computing Tarsel HW Bitmask");
        if (!course_.adapterError.empty()) {
            Item("GetAdaptersInfo failed with error: " + Varying(course_.adapterError) + "\n", {},
                 Good, ItemKind::Optional);
        }
        for (const std::wstring& adapter : course_.adapters) {
            if (const auto mask = MaskOf(adapter); mask && !course_.bitmask) {
                char number[16] = {};
                std::snprintf(number, sizeof(number), "0x%x", static_cast<unsigned>(*mask));
                Item("Found Adapter " + Narrow(adapter) + " to configure  Bitmask " + number +
                         "\r\n",
                     {}, Good, ItemKind::Optional);
            }
        }
        Heading("Enabling Features by Tarsel HW Bitmask");
        for (const RegistrySetting& setting : FeaturesOf(BitmaskOf(course_))) {
            Item("Writing Registry Setting " + Narrow(SettingDisplayText(setting)) + "\r\n", {},
                 Good, ItemKind::Optional);
        }
    }

    // The lines of one routine of the task service.
    void Task(const std::string& begin, const std::string& routine, const std::string& remark) {
        const bool fails = !course_.taskError.empty();
        const std::string error = fails ? "     ====> " + routine + ":[_com_error] Exception " +
                                              Varying(course_.taskError) + "\n"
                                        : remark;
        Item(begin + "....\n" + error, {"     ====> SUCCESS\n", "     ====> FAILED\n"},
             fails ? Bad : Good);
    }

    void ScheduleTasks() {
        Heading("\r\nScheduling Tasks.....");
        for (const ScheduledTaskEntry& task : ScheduledTaskTable) {
            const std::string directory =
                task.resolveInOwnFolder && !course_.programDirectory.empty()
                    ? course_.programDirectory + "\\"
                    : "";
            Task("   Creating Task Name [" + Narrow(task.taskName) + "] for Process [" +
                     Varying(directory) + Narrow(task.processName) + "]",
                 "CreateScheduledTask", "");
        }
        const std::string obsolete = "Tarsel Lumetra Startup Task";
        Task("   Deleting Task Name [" + obsolete + "]", "DeleteScheduledTask",
             course_.startupTask ? ""
                                 : "     ====> DeleteScheduledTask:[ERROR] " + obsolete +
                                       " GetLastError 0x" + Varying("00000000") + "\n");
    }

    void Start() {
        Banner(22, "Starting Processes.....");
        for (const auto& [kind, name, arguments] : StartList) {
            if (kind == EntryKind::Service) {
                Item("Starting " + Narrow(name) + "....", {"started\r\n", "start failed!\r\n"});
            } else if (kind == EntryKind::LaunchApp) {
                Item("Starting Application " + Narrow(name) + " with command line " +
                         Narrow(arguments) + "....",
                     {"started\r\n", "start failed!\r\n"});
            }
        }
    }

    void Disable() {
        Banner(24, "Disabling Processes....");
        for (const auto& [kind, name, extra] : DisableList) {
            if (kind == EntryKind::Service) {
                Item("Disabling Service " + Narrow(name) + "....",
                     {"Disabled\r\n", "Disable  failed!\r\n"});
            }
        }
    }

    const Course& course_;
    std::vector<LogItem> items_;
    std::set<std::string> there_;  // files and directories, without a backslash at the end
    bool configuring_ = false;
    bool cutOff_ = false;
};

}  // namespace

const Verdicts NothingRuns = {{"Stopping ", Bad}, {"Stopping Application ", Absent}};
const Verdicts NothingInstalled = {
    {"Stopping ", Bad}, {"Stopping Application ", Absent}, {"Starting ", Bad}, {"Disabling ", Bad}};

Verdicts RunsAfterARun() {
    Verdicts verdicts = NothingRuns;
    for (const ProcessEntry& entry : StartList) {
        verdicts.emplace_back("Stopping " + Narrow(entry.name) + ".", Good);
    }
    return verdicts;
}

std::vector<LogItem> ItemsOf(const Course& course) {
    return Walk(course).Items();
}

std::string BytesOf(const LogItem& item) {
    const auto end = static_cast<std::size_t>(item.verdict);
    return Unmarked(item.text) + (end < item.ends.size() ? item.ends[end] : "");
}

std::string LogOf(const Course& course) {
    return LogWith(ItemsOf(course));
}

std::string LogWith(const std::vector<LogItem>& items) {
    std::string log = LogBegin;
    for (const LogItem& item : items) {
        log += BytesOf(item);
    }
    return log + LogEnd;
}

std::string Unmarked(std::string text) {
    // Tests are not optimised, the library is: a predicate for each character would take ten times
    // as long.
    constexpr char Marks[] = {MarkBefore, MarkBehind, '\0'};
    for (std::size_t at = 0; (at = text.find_first_of(Marks, at)) != std::string::npos;) {
        text.erase(at, 1);
    }
    return text;
}

std::string FixedBeginning(const std::string& text) {
    return text.substr(0, text.find(MarkBefore));
}

bool Matches(std::string_view line, std::string_view text) {
    const std::size_t before = text.find(MarkBefore);
    return before == std::string_view::npos
               ? line == text
               : line.starts_with(text.substr(0, before)) &&
                     line.ends_with(text.substr(text.rfind(MarkBehind) + 1));
}

std::string DestinationOf(const FileOperation& file, const Course& course) {
    return Expanded(Resolved(file.resolveDestination, file.fileName, course));
}

std::string TargetOf(const SecuredDirectory& directory, const Course& course) {
    return Expanded(Resolved(directory.resolvePath, directory.path, course));
}

std::map<std::wstring, std::string> RequestedLists() {
    std::map<std::wstring, std::string> lists;
    for (const SecuredDirectory& directory : SecuredDirectoryTable) {
        std::string path = TargetOf(directory);
        path.erase(path.find_last_not_of('\\') + 1);
        const bool readers = directory.aces.size() > 2;
        lists[{path.begin(), path.end()}] = std::string("D:PAI(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)") +
                                            (readers ? "(A;OICI;0x1200a9;;;BU)" : "");
    }
    return lists;
}

bool IsThereAfter(const Course& course, const std::string& path) {
    return Walk(course).IsThere(path);
}

std::uint32_t BitmaskOf(const Course& course) {
    std::uint32_t bitmask = 0;
    for (const std::wstring& adapter : course.adapters) {
        bitmask |= MaskOf(adapter).value_or(0);
    }
    return course.bitmask.value_or(bitmask);
}

std::vector<RegistrySetting> FeaturesOf(std::uint32_t bitmask) {
    std::vector<RegistrySetting> settings;
    for (const FeatureRule& rule : FeatureRuleTable) {
        const RegistrySetting& setting = (rule.mask & bitmask) != 0 ? rule.whenSet : rule.whenClear;
        if (setting.root != nullptr) {
            settings.push_back(setting);
        }
    }
    return settings;
}

}  // namespace test
