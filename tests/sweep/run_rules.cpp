#include "sweep/run_rules.h"

#include "support/log_texts.h"

#include <algorithm>
#include <initializer_list>
#include <ranges>
#include <string_view>

namespace test {

namespace {

using std::string_view;

// The application's item as it stays if its token is refused: without a verdict or a line end, so
// that whatever comes next goes on behind it.
constexpr string_view UnendedItem =
    "Stopping Application ZEFIR.exe....with Window Title Tarsel\xAE Lumetra ";

// The item lines of the log: what they begin with, and what they may end with.
struct LineForm {
    string_view beginning;
    std::vector<string_view> endings;
};

const std::vector<string_view> Verdicts = {" \t - \tSuccess\r", " \t - \tFailure\r"};
const std::vector<string_view> LinkVerdicts = {" has NO links\t - \tSuccess\r",
                                               " has NO links\t - \tFailure\r"};

const std::vector<LineForm> LineForms = {
    {UnendedItem,
     {" application not found!\r", "application to send QUIT Message - Success=True\r",
      "application to send QUIT Message - Success=False\r"}},
    {"Stopping ", {"....stopped\r", "....stop failed!\r"}},
    {"Deleting Registry Setting ", Verdicts},
    {"Creating Directory ", Verdicts},
    {"Deleting File ", Verdicts},
    {"Copying File ",
     {"     overwriting =true\t - \tSuccess\r", "     overwriting =true\t - \tFailure\r",
      "     overwriting =false\t - \tSuccess\r", "     overwriting =false\t - \tFailure\r"}},
    {"Verifying File/Directory ", LinkVerdicts},
    {"Verifying Children Files of Directory ", LinkVerdicts},
    {"Setting DACLs on File/Directory ", Verdicts},
    {"Setting Child Inheritance DACLs on File/Directory ", Verdicts},
    {"Found Adapter Tarsel QZ311 to configure  Bitmask 0x2", {"\r"}},
    {"Writing Registry Setting HKEY_LOCAL_MACHINE\\", {"\\MultiInterface_Enabled=1\r"}},
    {"GetAdaptersInfo failed with error: ", {""}},
    {"   Creating Task Name [VxIdle Task] for Process [", {"VxIdleTask.exe]...."}},
    {"   Deleting Task Name [Tarsel Lumetra Startup Task]....", {""}},
    {"     ====> CreateScheduledTask:[_com_error] Exception 0x", {""}},
    {"     ====> DeleteScheduledTask:[_com_error] Exception 0x", {""}},
    {"     ====> DeleteScheduledTask:[ERROR] Tarsel Lumetra Startup Task GetLastError 0x", {""}},
    {"     ====> SUCCESS", {""}},
    {"     ====> FAILED", {""}},
    {"First Run - ",
     {"Unfinaset.exe  DOES NOT EXIST\r", "Unfinaset.exe Process\r", "Unfinaset.exe Ended (True)\r",
      "Unfinaset.exe Ended (False)\r"}},
    {"Starting ", {"....started\r", "....start failed!\r"}},
    {"Disabling Service ", {"....Disabled\r", "....Disable  failed!\r"}},
};

// The lines that stand as they are.
const std::vector<string_view> FixedLines = {
    "\r",
    "FIRST RUN - START\r",
    "FIRST RUN - FINISHED\r",
    "------------------------\r",
    "Stopping Processes.....\r",
    "-------------------------------------------------------\r",
    "Setting Up Configuration Settings and Environment....\r",
    "Delete Registry Settings.....\r",
    "CopyFiles.....\r",
    "SecureFilesDirectories.....\r",
    "Write Registry Settings.....\r",
    "Computing Tarsel HW Bitmask\r",
    "Enabling Features by Tarsel HW Bitmask\r",
    "Scheduling Tasks.....\r",
    "--------------------------\r",
    "Uninstalling Product.....\r",
    // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one line of the log
    "Security Vulnerability Securing Directories due to Failure Setting ACLs or Links Detected - "
    "Uninstalling\r",
    "----------------------\r",
    "Starting Processes.....\r",
    "Disabling Processes....\r",
};

bool IsOf(const LineForm& form, string_view line) {
    return line.starts_with(form.beginning) &&
           std::ranges::any_of(form.endings,
                               [line](string_view ending) { return line.ends_with(ending); });
}

bool IsComplete(string_view line, bool tokenRefused) {
    return (tokenRefused && line == UnendedItem) ||
           std::ranges::find(FixedLines, line) != FixedLines.end() ||
           std::ranges::any_of(LineForms,
                               [line](const LineForm& form) { return IsOf(form, line); });
}

std::vector<string_view> Lines(string_view log, bool tokenRefused) {
    std::vector<string_view> lines;
    while (!log.empty()) {
        const std::size_t end = log.find('\n');
        const string_view line = log.substr(0, end);
        if (tokenRefused && line.starts_with(UnendedItem) && !IsOf(LineForms.front(), line)) {
            lines.push_back(UnendedItem);
            log.remove_prefix(UnendedItem.size());
            continue;
        }
        lines.push_back(line);
        log.remove_prefix(end == string_view::npos ? log.size() : end + 1);
    }
    return lines;
}

// What must stand in the log of a run, in this order, each at the beginning of a line of its own.
std::vector<string_view> Skeleton(const std::wstring& option, bool secured) {
    std::vector<string_view> skeleton = {"FIRST RUN - START"};
    const auto add = [&skeleton](std::initializer_list<string_view> lines) {
        skeleton.insert(skeleton.end(), lines);
    };
    const bool all = option.empty();
    if (all || option == L"/STOP") {
        add({"Stopping Processes.....", "Stopping Application ZEFIR.exe....",
             "Stopping brisko network service x64....", "Stopping hvnetsvc....",
             "Stopping Corvo....", "Stopping TarselHubService....",
             "Stopping Tarsel Nimbus Network Service....", "Stopping Ardex....",
             "Stopping Tarsel Metrics Service....", "Stopping Tarsel Data Relay Service...."});
    }
    if (all || option == L"/CONFIGURE") {
        add({"Setting Up Configuration Settings and Environment....",
             "Delete Registry Settings.....",
             "Deleting Registry Setting HKEY_LOCAL_MACHINE\\SYSTEM",
             "Deleting Registry Setting HKEY_LOCAL_MACHINE\\SOFTWARE", "CopyFiles.....",
             "Creating Directory", "Copying File", "Deleting File", "Creating Directory",
             "Copying File", "Deleting File", "Creating Directory", "Copying File",
             "SecureFilesDirectories....."});
        for (int directory = 0; secured && directory < 4; ++directory) {
            add({"Creating Directory", "Verifying File/Directory",
                 "Verifying Children Files of Directory", "Setting DACLs on File/Directory"});
        }
        if (secured) {
            add({"Write Registry Settings.....", "Computing Tarsel HW Bitmask",
                 "Enabling Features by Tarsel HW Bitmask", "Scheduling Tasks.....",
                 "   Creating Task Name", "     ====> ", "   Deleting Task Name", "     ====> "});
        } else {
            add({"Uninstalling Product.....", "Security Vulnerability"});
        }
    }
    if (secured && (all || option == L"/START")) {
        add({"Starting Processes.....",
             "Starting Application BriskoLU.exe with command line -u....", "Starting Ardex....",
             "Starting Tarsel Metrics Service....", "Starting Tarsel Nimbus Network Service....",
             "Starting Tarsel Data Relay Service...."});
    }
    if (secured && option == L"/DISABLE") {
        add({"Disabling Processes....", "Disabling Service Corvo....",
             "Disabling Service TarselHubService....", "Disabling Service Ardex....",
             "Disabling Service Tarsel Metrics Service....",
             "Disabling Service Tarsel Nimbus Network Service....",
             "Disabling Service Tarsel Data Relay Service...."});
    }
    skeleton.emplace_back("FIRST RUN - FINISHED");
    return skeleton;
}

// The bounds of what a run waits for: each service's stop and start with the poll that runs over,
// the quit helper, the uninstall program.
constexpr DWORD LongestWaitMs = 60'000;
constexpr ULONGLONG RunLimitMs = 8 * 30'500 + 4 * 10'500 + 30'000 + 60'000;

class Rules {
public:
    Rules(const InstalledProduct& run, const std::wstring& option)
        : run_(run),
          option_(option),
          tokenRefused_(std::ranges::find(run.Events(), "OpenProcessToken") == run.Events().end()),
          lines_(Lines(run.Log(), tokenRefused_)) {}

    std::vector<std::string> Broken() {
        Expect(run_.ExitCode() == 0, "the exit code is not 0");
        Expect(run_.LongestWait() <= LongestWaitMs, "a wait has no bound");
        Expect(run_.Waited() <= RunLimitMs, "the run waits too long in all");
        for (const std::string& leak : run_.Leaks()) {
            Expect(false, leak);
        }
        Expect(run_.Log().starts_with(LogBegin), "no start banner");
        Expect(run_.Log().ends_with(LogEnd), "no finish banner");
        for (const string_view line : lines_) {
            Expect(IsComplete(line, tokenRefused_), "a line that is none: " + std::string(line));
        }
        CheckSkeleton();
        CheckSecuring();
        return std::move(broken_);
    }

private:
    void Expect(bool holds, const std::string& rule) {
        if (!holds) {
            broken_.push_back(rule);
        }
    }

    void CheckSkeleton() {
        const bool secured =
            std::ranges::find(lines_, "Uninstalling Product.....\r") == lines_.end();
        auto line = lines_.begin();
        for (const string_view expected : Skeleton(option_, secured)) {
            const auto found = std::find_if(line, lines_.end(), [expected](string_view each) {
                return each.starts_with(expected);
            });
            Expect(found != lines_.end(), "left out: " + std::string(expected));
            line = found == lines_.end() ? line : found + 1;
        }
    }

    // After a check that has failed, nothing of that directory is secured, and nothing is started
    // or disabled but the uninstall program.
    void CheckSecuring() {
        bool failed = false;
        string_view item;
        for (const string_view event : run_.Events()) {
            if (event.starts_with("log Verifying ") || event.starts_with("log Setting DACLs ") ||
                event.starts_with("log Setting Child ")) {
                item = event;
            } else if (event.starts_with("log ")) {
                failed = failed || (event == "log Failure\r\n" && !item.empty());
                item = {};
            } else if (failed) {
                const bool harmless = event.starts_with("CreateProcessW ") &&
                                      event.find("Unfinaset.exe") != string_view::npos;
                Expect(harmless, "after a failed securing: " + std::string(event));
            }
        }
        Expect(!failed || std::ranges::find(lines_, "Uninstalling Product.....\r") != lines_.end(),
               "no response to a failed securing");
    }

    const InstalledProduct& run_;
    const std::wstring& option_;
    bool tokenRefused_;
    std::vector<string_view> lines_;
    std::vector<std::string> broken_;
};

}  // namespace

std::vector<std::string> BrokenRules(const InstalledProduct& run, const std::wstring& option) {
    return Rules(run, option).Broken();
}

}  // namespace test
