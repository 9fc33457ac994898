#include "sweep/run_rules.h"

#include "driver/actions.h"
#include "proc/process_lists.h"
#include "support/expected_log.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string_view>

namespace test {

namespace {

using std::string_view;

constexpr std::uint32_t AllActions = ActionStop | ActionConfigure | ActionStart | ActionDisable;

std::uint32_t ActionsOf(const std::wstring& option) {
    static const std::map<std::wstring, std::uint32_t> options = {{L"/STOP", ActionStop},
                                                                  {L"/CONFIGURE", ActionConfigure},
                                                                  {L"/START", ActionStart},
                                                                  {L"/DISABLE", ActionDisable}};
    const auto actions = options.find(option);
    return actions == options.end() ? ActionStop | ActionConfigure | ActionStart : actions->second;
}

// The course of a run on the machine that succeeds, and of one that cannot secure a directory.
Course Succeeds(std::uint32_t actions) {
    return {.actions = actions, .adapters = ProductAdapters(), .startupTask = true};
}

Course IsInsecure(std::uint32_t actions, Verdict uninstallProgram = Verdict::Good) {
    Course course = Succeeds(actions);
    course.verdicts = {{"Verifying ", Verdict::Bad}, {"Unfinaset.exe", uninstallProgram}};
    return course;
}

// With their line ends.
std::vector<std::string> LinesOf(string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.emplace_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

// All lines that a run may write, from the model, with its marks.
const std::set<std::string, std::less<>>& PossibleLines() {
    static const std::set<std::string, std::less<>> possible = [] {
        Course failing = Succeeds(AllActions);
        failing.adapterError = "1";
        failing.taskError = "1";
        failing.bitmask = 0;
        Course withoutTask = Succeeds(AllActions);
        withoutTask.startupTask = false;
        std::vector<std::string> texts = {LogBegin, LogEnd};
        for (const Course& course :
             {Succeeds(AllActions), failing, withoutTask, IsInsecure(AllActions),
              IsInsecure(AllActions, Verdict::Bad), IsInsecure(AllActions, Verdict::Absent)}) {
            for (const LogItem& item : ItemsOf(course)) {
                if (item.ends.empty()) {
                    texts.push_back(item.text);
                }
                for (const std::string& end : item.ends) {
                    texts.push_back(item.text + end);
                }
            }
        }
        std::set<std::string, std::less<>> lines;
        for (const std::string& text : texts) {
            const std::vector<std::string> more = LinesOf(text);
            lines.insert(more.begin(), more.end());
        }
        return lines;
    }();
    return possible;
}

bool FitsAPossibleLine(string_view line) {
    static const std::vector<std::string> marked = [] {
        std::vector<std::string> texts;
        std::ranges::copy_if(PossibleLines(), std::back_inserter(texts),
                             [](const auto& text) { return FixedBeginning(text) != text; });
        return texts;
    }();
    return PossibleLines().contains(line) ||
           std::ranges::any_of(marked,
                               [line](const std::string& text) { return Matches(line, text); });
}

// Most lines are in every run's log.
bool IsPossible(string_view line) {
    static std::map<std::string, bool, std::less<>> known;
    auto entry = known.find(line);
    if (entry == known.end()) {
        entry = known.emplace(line, FitsAPossibleLine(line)).first;
    }
    return entry->second;
}

// The application's item has no verdict or line end if its token is refused, so the next text
// follows it on the same line.
const std::set<std::string>& UnendedItems() {
    static const std::set<std::string> unended = [] {
        std::set<std::string> texts;
        for (const LogItem& item : ItemsOf(Succeeds(ActionStop))) {
            if (item.ends.size() > static_cast<std::size_t>(Verdict::Absent)) {
                texts.insert(item.text);
            }
        }
        return texts;
    }();
    return unended;
}

std::vector<std::string> LinesOf(const std::string& log, bool tokenRefused) {
    std::vector<std::string> lines;
    for (std::string& line : LinesOf(log)) {
        for (const std::string& unended : UnendedItems()) {
            if (tokenRefused && line.starts_with(unended) && !IsPossible(line)) {
                lines.push_back(unended);
                line.erase(0, unended.size());
            }
        }
        lines.push_back(line);
    }
    return lines;
}

// The lines that must be in the log of a run, in this order: the possible beginnings of each.
using Skeleton = std::vector<std::vector<std::string>>;

Skeleton SkeletonOf(const Course& course) {
    Skeleton skeleton;
    for (const LogItem& item : ItemsOf(course)) {
        if (item.kind == ItemKind::Optional) {
            continue;
        }
        for (const std::string& line : LinesOf(item.text)) {
            skeleton.push_back({FixedBeginning(line)});
        }
        if (item.text.ends_with('\n') && !item.ends.empty()) {
            skeleton.push_back(item.ends);
        }
    }
    return skeleton;
}

const Skeleton& SkeletonOf(const std::wstring& option, bool secured) {
    static std::map<std::pair<std::wstring, bool>, Skeleton> skeletons;
    const auto [skeleton, isNew] = skeletons.try_emplace({option, secured});
    if (isNew) {
        const std::uint32_t actions = ActionsOf(option);
        skeleton->second = SkeletonOf(secured ? Succeeds(actions) : IsInsecure(actions));
    }
    return skeleton->second;
}

// The beginnings of the items whose failure makes the machine insecure.
const std::set<std::string>& SecuringItems() {
    static const std::set<std::string> securing = [] {
        std::set<std::string> beginnings;
        for (const LogItem& item : ItemsOf(Succeeds(ActionConfigure))) {
            if (item.kind == ItemKind::Securing) {
                beginnings.insert(FixedBeginning(item.text));
            }
        }
        return beginnings;
    }();
    return securing;
}

// The limits of a run's waits: each service's stop and start with the last poll, the quit helper,
// the uninstall program.
constexpr DWORD LongestWaitMs = 60'000;

ULONGLONG RunLimitMs() {
    ULONGLONG limit = 60'000;
    for (const ProcessEntry& entry : StopList) {
        limit += entry.kind == EntryKind::Service ? 30'500 : 30'000;
    }
    for (const ProcessEntry& entry : StartList) {
        limit += entry.kind == EntryKind::Service ? 10'500 : 0;
    }
    return limit;
}

class Rules {
public:
    Rules(const InstalledProduct& run, const std::wstring& option)
        : run_(run),
          option_(option),
          tokenRefused_(std::ranges::find(run.Events(), "OpenProcessToken") == run.Events().end()),
          lines_(LinesOf(run.Log(), tokenRefused_)) {}

    std::vector<std::string> Broken() {
        Expect(run_.ExitCode() == 0, "the exit code is not 0");
        Expect(run_.LongestWait() <= LongestWaitMs, "a wait has no bound");
        Expect(run_.Waited() <= RunLimitMs(), "the run waits too long in all");
        for (const std::string& leak : run_.Leaks()) {
            Expect(false, "", leak);
        }
        Expect(run_.Log().starts_with(LogBegin), "no start banner");
        Expect(run_.Log().ends_with(LogEnd), "no finish banner");
        for (const std::string& line : lines_) {
            Expect((tokenRefused_ && UnendedItems().contains(line)) || IsPossible(line),
                   "a line that is none: ", line);
        }
        CheckSkeleton();
        CheckSecuring();
        return std::move(broken_);
    }

private:
    void Expect(bool holds, const char* rule, string_view what = "") {
        if (!holds) {
            broken_.push_back(rule + std::string(what));
        }
    }

    void CheckSkeleton() {
        auto line = lines_.begin();
        for (const std::vector<std::string>& ways : SkeletonOf(option_, !Responded())) {
            const auto found = std::find_if(line, lines_.end(), [&](const std::string& each) {
                return std::ranges::any_of(ways, [&](const std::string& beginning) {
                    return each.starts_with(beginning);
                });
            });
            Expect(found != lines_.end(), "left out: ", ways.front());
            line = found == lines_.end() ? line : found + 1;
        }
    }

    [[nodiscard]] bool Responded() const {
        return std::ranges::find(lines_, "Uninstalling Product.....\r\n") != lines_.end();
    }

    // After a failed check, nothing more of that directory is secured, and nothing is started or
    // disabled but the uninstall program.
    void CheckSecuring() {
        bool failed = false;
        bool securing = false;
        for (const string_view event : run_.Events()) {
            if (event.starts_with("log ")) {
                const string_view text = event.substr(4);
                failed = failed || (securing && text == "Failure\r\n");
                // Wide texts come letter by letter.
                securing = text.size() > 1 &&
                           std::ranges::any_of(SecuringItems(), [text](const std::string& item) {
                               return text.starts_with(item);
                           });
            } else if (failed) {
                const bool harmless = event.starts_with("CreateProcessW ") &&
                                      event.find("Unfinaset.exe") != string_view::npos;
                Expect(harmless, "after a failed securing: ", event);
            }
        }
        Expect(!failed || Responded(), "no response to a failed securing");
    }

    const InstalledProduct& run_;
    const std::wstring& option_;
    bool tokenRefused_;
    std::vector<std::string> lines_;
    std::vector<std::string> broken_;
};

}  // namespace

std::vector<std::string> BrokenRules(const InstalledProduct& run, const std::wstring& option) {
    return Rules(run, option).Broken();
}

}  // namespace test
