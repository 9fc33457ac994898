#pragma once

#include "fs/directory_security.h"
#include "fs/file_operations.h"
#include "registry/registry_setting.h"
#include "support/log_texts.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The one model of the log: it walks the product's tables and says what a run writes, byte for
// byte.

namespace test {

// How an item ends. Absent: nothing to act on (an application, the uninstall program). Cut: no
// verdict follows, since memory ran out. An item without a verdict is left out if it is Bad.
enum class Verdict : std::uint8_t { Good, Bad, Absent, Cut };

// Verdicts on items that contain a text. If several fit one item, the last counts.
using Verdicts = std::vector<std::pair<std::string, Verdict>>;

// What a run finds on the machine, and how it goes. The default is the first run, without an
// option, on a machine where everything is installed and in use, and nothing fails.
struct Course {
    std::uint32_t actions = 1 | 4 | 8;
    Verdicts verdicts{};            // where they do not follow from the rest
    bool staleSettings = true;      // the values to delete exist
    bool configured = false;        // the files and directories exist, from an earlier run
    std::set<std::string> there{};  // further files and directories
    std::optional<std::set<std::wstring>> shipped{};     // the files to copy, if not all exist
    std::map<std::wstring, std::wstring> directories{};  // by the value that names them
    std::vector<std::wstring> adapters{};                // their descriptions
    std::string adapterError{};                          // why they cannot be listed: a number
    std::optional<std::uint32_t> bitmask{};              // of a setting, instead of the adapters'
    bool startupTask = false;                            // the obsolete task exists
    std::string taskError{};                             // why the task service fails
    std::string programDirectory = "C:\\Program Files\\Tarsel\\Lumetra";  // empty: unknown
};

// Nothing runs that could be stopped; nothing of the product is there at all; and only what a
// default run starts can be stopped.
extern const Verdicts NothingRuns;
extern const Verdicts NothingInstalled;
Verdicts RunsAfterARun();

enum class ItemKind : std::uint8_t {
    Heading,
    Item,
    Securing,  // an item whose failure makes the machine insecure
    Optional,  // an item that is omitted after a failure
};

// A piece of the log: an item, and its possible ends.
struct LogItem {
    ItemKind kind = ItemKind::Item;
    std::string text;                 // with marks around what may differ from run to run
    std::vector<std::string> ends{};  // by verdict, without Cut
    Verdict verdict = Verdict::Good;
};

std::vector<LogItem> ItemsOf(const Course& course);
std::string BytesOf(const LogItem& item);

// The bytes of the whole log.
std::string LogOf(const Course& course);
std::string LogWith(const std::vector<LogItem>& items);

std::string Unmarked(std::string text);

// A text up to its first mark; and whether a line is this text, with anything between the first
// mark and the last.
std::string FixedBeginning(const std::string& text);
bool Matches(std::string_view line, std::string_view text);

// The paths of a file's copy and of a secured directory as the log names them.
std::string DestinationOf(const FileOperation& file, const Course& course = {});
std::string TargetOf(const SecuredDirectory& directory, const Course& course = {});

// The access control lists that a run requests, by the directory's path, in the platform's
// notation.
std::map<std::wstring, std::string> RequestedLists();

// Whether the path exists after the run.
bool IsThereAfter(const Course& course, const std::string& path);

// The hardware bitmask that a run determines, and the settings that it writes for one.
std::uint32_t BitmaskOf(const Course& course);
std::vector<RegistrySetting> FeaturesOf(std::uint32_t bitmask);

}  // namespace test
