// Writes logs like those of a rollout, and their expected findings.
//
//   make_logs DIRECTORY COUNT
//
// The logs go below DIRECTORY/logs, in directories by Windows version; of a thousand or more some
// are huge. DIRECTORY/expected has a line for each number: how many logs are read, in order, need
// attention and are unreadable, and how many have which finding, with its reason after a tab.

#include "support/expected_log.h"
#include "support/file_contents.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using enum test::Verdict;

// An item that needs attention if it fails, or, without a verdict, if it is there.
struct Trouble {
    std::string_view begin;
    std::string_view rest;  // of the finding
    std::string_view end{};
};

constexpr Trouble Troubles[] = {
    {"Stopping Application ",
     "NAME....with Window Title TITLE Process PROGRAM Started in context of NAME application to "
     "send QUIT Message - Success=False\tIt was not asked to quit: Quitline.exe is missing, did "
     "not start, or did not end in 30 seconds."},
    {"Deleting Registry Setting ",
     "SETTING - Failure\tThe key could not be deleted: the program had no right to it.",
     "\\= \t - \t"},
    {"Copying File ",
     "SOURCE -> PATH overwriting =true - Failure\tIt did not come from the driver's folder: it is "
     "not there, or could not be written.",
     "=true\t - \t"},
    {"Verifying File/Directory ",
     "PATH has NO links - Failure\tThe directory, or one above it, is a link. Nothing was "
     "configured after this."},
    {"Verifying Children Files of Directory ",
     "PATH has NO links - Failure\tOne of its entries is a link. Nothing was configured after "
     "this."},
    {"Setting DACLs on File/Directory ",
     "PATH - Failure\tIts access list could not be set. Nothing was configured after this."},
    {"Setting Child Inheritance DACLs on File/Directory ",
     "PATH - Failure\tThe access list of something below it could not be reset. Nothing was "
     "configured after this."},
    {"Security Vulnerability ",
     "Securing Directories due to Failure Setting ACLs or Links Detected - Uninstalling\tThe "
     "product's directories are not secure. No service was started."},
    {"GetAdaptersInfo failed ", "with error: NUMBER\tNo adapter could be looked at."},
    {"   Creating Task ", "Name [NAME] for Process [PATH].... FAILED\tThe task is not scheduled."},
    {"   Deleting Task ", "Name [NAME].... FAILED\tThe task may still be scheduled.", "denied.\n"},
    {"Starting Application ",
     "NAME with command line ARGUMENTS....start failed!\tIt is not in the program's directory, or "
     "does not start."},
    {"Starting ", "NAME....start failed!\tIt "},  // and why
    {"Disabling Service ",
     "NAME....Disable failed!\tIt is not installed, or the program had no right to it."},
};

struct Log {
    std::string bytes;
    std::set<std::string> findings{};
    bool readable = true;
};

// Of a run in which a few more items fail.
Log LogOf(test::Course course, std::mt19937& random) {
    const std::string asBefore =
        " either: it runs on as it was, or is not installed, or the program had no right to it.";
    std::set<std::string> findings;
    std::vector<test::LogItem> items = ItemsOf(course);
    for (std::size_t index = 0; index < items.size(); ++index) {
        const std::string text = test::Unmarked(items[index].text);
        const auto* const trouble = std::ranges::find_if(Troubles, [&](const Trouble& each) {
            return text.starts_with(each.begin) && text.ends_with(each.end);
        });
        if (trouble == std::end(Troubles)) {
            continue;
        }
        if (!items[index].ends.empty()) {
            // In a first run there is no file to delete before it is copied; in later ones only
            // their being secured shows that some directories exist.
            const bool alone = course.configured ? items[index].kind != test::ItemKind::Securing
                                                 : !trouble->begin.starts_with("Copying");
            if (alone && random() % 40 == 0) {
                course.verdicts.emplace_back(text, Bad);
                items = ItemsOf(course);  // others may follow
            }
            if (items[index].verdict != Bad) {
                continue;
            }
        }
        std::string finding(trouble->begin.substr(trouble->begin.find_first_not_of(' ')));
        finding += trouble->rest;
        if (trouble->begin == "Starting ") {
            const auto stop = std::ranges::find(
                items, "Stopping " + text.substr(trouble->begin.size()), &test::LogItem::text);
            if (stop == items.end()) {
                finding += "does not start, or is not installed, or runs already.";
            } else if (stop->verdict == Good) {
                finding += "was stopped and does not start again.";
            } else {
                finding += "did not stop before" + asBefore;
                findings.insert("Stopping NAME....stop failed!\tIt did not start later" + asBefore);
            }
        }
        findings.insert(finding);
    }
    return {test::LogWith(items), findings};
}

Log AnyLog(std::mt19937& random) {
    const std::vector<test::Course> courses = {
        {.actions = 8},
        {.actions = 16},
        {.adapterError = "8"},
        {.taskError = "0x80070005, (null), Access is denied."},
        {.verdicts = test::NothingRuns},
        {.verdicts = {{"Stopping Ardex", Bad}, {"Stopping Tarsel ", Bad}}, .startupTask = true},
        {.adapters = {L"TarselQZ311"}},
        {.verdicts = test::RunsAfterARun(), .configured = true},  // usually
    };
    return LogOf(courses[std::min<std::size_t>(random() % 16, courses.size() - 1)], random);
}

std::string Utf16(std::string_view log) {
    std::string bytes = "\xFF\xFE";
    for (const char character : log) {
        bytes += {character, '\0'};
    }
    return bytes;
}

// Of a run, as it may have been captured.
Log CapturedLog(std::mt19937& random) {
    static const std::string good = test::LogOf({.configured = true});
    const std::string noEnd = "The log's end is missing: the run, or its capture, was cut off.\t";
    Log log = AnyLog(random);
    switch (random() % 25) {
        case 0:
            return {Utf16(log.bytes), log.findings};
        case 1:
            return {AnyLog(random).bytes + log.bytes, log.findings};
        case 2:
            log.findings.insert("The log's beginning is missing.\t");
            return {log.bytes.erase(0, test::LogBegin.size()), log.findings};
        case 3:
            return {good.substr(0, good.find("SecureFilesDirectories")), {noEnd}};
        case 4:
            return {good.substr(0, good.rfind("started")),
                    {noEnd,
                     "Starting NAME....\tThere is no verdict: the run, or this step, was cut off "
                     "here."}};
        case 5:
            return {std::string(good).replace(good.find("Setting DACLs"), 2, "\x01\xFF")};
        case 6:
            return {{}, {}, false};
        case 7:
            return {"\r\n", {}, false};
        case 8:
            return {std::string("MZ\x90\0\x03\0\0\0\x04\0\0\0\xFF\xFF", 14), {}, false};
        case 9:
            return {"Volume in drive C has no label.\r\n", {}, false};
        default:
            return log;
    }
}

// So often that it is huge.
std::string Repeated(const std::string& text) {
    constexpr std::size_t Huge = 200'000'000;
    const std::size_t size = (Huge + text.size() - 1) / text.size() * text.size();
    std::string repeated = text;
    repeated.reserve(size + 1'000'000);  // for what is added at either end
    while (repeated.size() < size) {     // twice as long each time
        repeated.append(repeated, 0, size - repeated.size());
    }
    return repeated;
}

void Write(const std::filesystem::path& directory, std::size_t count) {
    std::mt19937 random;  // the same numbers each time
    const Log good = {test::LogOf({})};
    const Log bad = LogOf({.verdicts = {{"Verifying Children ", Bad}}}, random);
    std::map<std::string, std::size_t> numbers;
    for (std::size_t index = 0; index < count; ++index) {
        constexpr std::size_t Many = 1000;
        const Log log =
            count < Many || index > 3 ? CapturedLog(random)
            : index == 0              ? Log{Repeated(good.bytes) + bad.bytes, bad.findings}
            : index == 1              ? Log{Repeated(bad.bytes) + good.bytes}
            : index == 2
                ? Log{test::LogBegin + Repeated("of the companion\r\n") + test::LogEnd, {}, false}
                : Log{Repeated("\xCC"), {}, false};
        constexpr const char* Versions[] = {"win10-22H2", "win11-23H2", "win11-24H2"};
        test::PutFile(directory / "logs" / Versions[index % 3] /
                          ("PC-" + std::to_string(10'000 + index) + ".log"),
                      log.bytes);
        ++numbers[log.readable ? "read" : "not readable"];
        if (log.readable) {
            ++numbers[log.findings.empty() ? "in order" : "needing attention"];
        }
        for (const std::string& finding : log.findings) {
            ++numbers[finding];
        }
    }
    std::string expected;
    for (const auto& [name, logs] : numbers) {
        expected += std::to_string(logs) + '\t' + name + '\n';
    }
    test::PutFile(directory / "expected", expected);
}

}  // namespace

int wmain(int argumentCount, wchar_t* arguments[]) {
    if (argumentCount != 3) {
        return 2;
    }
    Write(arguments[1], std::stoul(arguments[2]));
    return 0;
}
