#include "log_reader/judge.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

namespace {

struct Ruling {
    Judgement judgement;
    std::string_view reason;
};

constexpr Ruling Fine = {Judgement::Fine, {}};

constexpr Ruling Expected(std::string_view reason) {
    return {Judgement::Expected, reason};
}

constexpr Ruling Attention(std::string_view reason) {
    return {Judgement::Attention, reason};
}

// Whether the path is the directory or is in it.
bool IsBelow(std::string_view path, std::string_view directory) {
    while (directory.ends_with('\\')) {
        directory.remove_suffix(1);
    }
    return path.starts_with(directory) &&
           (path.size() == directory.size() || path[directory.size()] == '\\');
}

// ---- What else the log says

class Evidence {
public:
    explicit Evidence(const Report& log) : ends_(log.ends) {
        for (const Section& section : log.sections) {
            for (const Item& item : section.items) {
                Add(item);
            }
        }
        for (std::vector<std::string_view>* names :
             {&started_, &notStarted_, &stopped_, &notStopped_, &copied_, &shown_, &linked_}) {
            std::ranges::sort(*names);
        }
    }

    [[nodiscard]] bool Started(std::string_view service) const { return Has(started_, service); }
    [[nodiscard]] bool NotStarted(std::string_view service) const {
        return Has(notStarted_, service);
    }
    [[nodiscard]] bool Stopped(std::string_view service) const { return Has(stopped_, service); }
    [[nodiscard]] bool NotStopped(std::string_view service) const {
        return Has(notStopped_, service);
    }

    [[nodiscard]] bool IsCopied(std::string_view file) const { return Has(copied_, file); }

    // Whether the file belongs in a directory that did not exist before.
    [[nodiscard]] bool IsInNewDirectory(std::string_view file) const {
        return std::ranges::any_of(
            created_, [&](std::string_view directory) { return IsBelow(file, directory); });
    }

    // Whether something done or found in the directory shows that it exists.
    [[nodiscard]] bool IsThere(std::string_view directory) const {
        if (Has(linked_, directory)) {
            return true;
        }
        directory = directory.substr(0, directory.find_last_not_of('\\') + 1);
        if (Has(shown_, directory)) {
            return true;
        }
        const std::string below = std::string(directory) + '\\';
        const auto first = std::ranges::lower_bound(shown_, std::string_view(below));
        return first != shown_.end() && first->starts_with(below);
    }

    // Whether the log may have had more lines, or a feature was written.
    [[nodiscard]] bool MayHaveWrittenFeature() const { return wroteFeature_ || !ends_; }

private:
    void Add(const Item& item) {
        const bool done = item.outcome == Outcome::Done;
        const bool failed = item.outcome == Outcome::Failed;
        switch (item.kind) {
            case Kind::StartService:
                AddIf(done, started_, item.names.front());
                AddIf(failed, notStarted_, item.names.front());
                break;
            case Kind::StopService:
                AddIf(done, stopped_, item.names.front());
                AddIf(failed, notStopped_, item.names.front());
                break;
            case Kind::CreateDirectory:
                AddIf(done, created_, item.names.front());
                AddIf(done, shown_, item.names.front());
                break;
            case Kind::SetAccess:
                AddIf(done, shown_, item.names.front());
                break;
            case Kind::CopyFile:
                AddIf(done, copied_, item.names[1]);
                AddIf(done, shown_, item.names[1]);
                break;
            case Kind::CheckPath:
            case Kind::CheckChildren:
                AddIf(failed, linked_, item.names.front());
                break;
            case Kind::WriteFeature:
                wroteFeature_ = true;
                break;
            default:
                break;
        }
    }

    static void AddIf(bool condition, std::vector<std::string_view>& names, std::string_view name) {
        if (condition) {
            names.push_back(name);
        }
    }

    static bool Has(const std::vector<std::string_view>& names, std::string_view name) {
        return std::ranges::binary_search(names, name);
    }

    bool ends_;
    bool wroteFeature_ = false;
    std::vector<std::string_view> started_{};
    std::vector<std::string_view> notStarted_{};
    std::vector<std::string_view> stopped_{};
    std::vector<std::string_view> notStopped_{};
    std::vector<std::string_view> created_{};
    std::vector<std::string_view> copied_{};
    std::vector<std::string_view> shown_{};   // each shows that the directories above it exist
    std::vector<std::string_view> linked_{};  // directories that are or contain links
};

// ---- The rules that look beyond the item

Ruling StopThatFailed(const Item& item, const Evidence& log) {
    const std::string_view name = item.names.front();
    if (log.Started(name)) {
        return Expected("It was stopped already: what runs does not start again, as it did later.");
    }
    if (log.NotStarted(name)) {
        return Attention(
            "It did not start later either: it runs on as it was, or is not installed, or the "
            "program had no right to it.");
    }
    return Expected(
        "Most often it was stopped already or is not installed; this run does not start it, so the "
        "log cannot tell whether it runs on.");
}

Ruling StartThatFailed(const Item& item, const Evidence& log) {
    const std::string_view name = item.names.front();
    if (log.Stopped(name)) {
        return Attention("It was stopped and does not start again.");
    }
    if (log.NotStopped(name)) {
        return Attention(
            "It did not stop before either: it runs on as it was, or is not installed, or the "
            "program had no right to it.");
    }
    return Attention("It does not start, or is not installed, or runs already.");
}

// For a whole key, the value name is empty. The key is created before it is deleted, so it exists.
Ruling SettingNotDeleted(const Item& item, const Evidence& /*log*/) {
    return item.names.front().ends_with("\\=")
               ? Attention("The key could not be deleted: the program had no right to it.")
               : Expected("There was no such setting.");
}

Ruling FileNotDeleted(const Item& item, const Evidence& log) {
    return log.IsCopied(item.names.front())
               ? Expected("There was none yet, or the copy replaced it.")
               : Attention("It could not be deleted, or there is none, and none was copied.");
}

Ruling DirectoryNotCreated(const Item& item, const Evidence& log) {
    return log.IsThere(item.names.front()) ? Expected("It was there already.")
                                           : Attention("Nothing shows that it was there already.");
}

Ruling FileNotCopied(const Item& item, const Evidence& log) {
    if (item.names[2] == "true") {
        return Attention(
            "It did not come from the driver's folder: it is not there, or could not "
            "be written.");
    }
    return log.IsInNewDirectory(item.names[1])
               ? Attention(
                     "There was none to keep, since its directory is new, and none came from "
                     "the driver's folder.")
               : Expected("There was one, which is kept.");
}

Ruling AdapterThatWasFound(const Item& /*item*/, const Evidence& log) {
    return log.MayHaveWrittenFeature()
               ? Fine
               : Attention("Its feature was not enabled: no setting was written.");
}

// ---- All rules

struct Rule {
    Kind kind = Kind::Unknown;
    Outcome outcome = Outcome::Failed;
    Ruling ruling = Fine;
    Ruling (*judge)(const Item& item, const Evidence& log) = nullptr;  // replaces the ruling
};

constexpr Rule Rules[] = {
    {Kind::QuitApplication, Outcome::Absent, Expected("It was not running.")},
    {Kind::QuitApplication, Outcome::Failed,
     Attention(
         "It was not asked to quit: Quitline.exe is missing, did not start, or did not end in "
         "30 seconds.")},
    {Kind::QuitApplication, Outcome::Missing,
     Attention("It was not asked to quit: the program may not act as its user.")},
    {Kind::StopService, Outcome::Failed, {}, &StopThatFailed},
    {Kind::StartService, Outcome::Failed, {}, &StartThatFailed},
    {Kind::StartApplication, Outcome::Failed,
     Attention("It is not in the program's directory, or does not start.")},
    {Kind::DisableService, Outcome::Failed,
     Attention("It is not installed, or the program had no right to it.")},
    {Kind::DeleteSetting, Outcome::Failed, {}, &SettingNotDeleted},
    {Kind::WriteSetting, Outcome::Failed, Attention("The setting could not be written.")},
    {Kind::DeleteFile, Outcome::Failed, {}, &FileNotDeleted},
    {Kind::CreateDirectory, Outcome::Failed, {}, &DirectoryNotCreated},
    {Kind::CopyFile, Outcome::Failed, {}, &FileNotCopied},
    {Kind::CheckPath, Outcome::Failed,
     Attention("The directory, or one above it, is a link. Nothing was configured after this.")},
    {Kind::CheckChildren, Outcome::Failed,
     Attention("One of its entries is a link. Nothing was configured after this.")},
    {Kind::SetAccess, Outcome::Failed,
     Attention("Its access list could not be set. Nothing was configured after this.")},
    {Kind::ResetChildren, Outcome::Failed,
     Attention("The access list of something below it could not be reset. Nothing was configured "
               "after this.")},
    {Kind::UninstallMissing, Outcome::Plain,
     Attention("The insecure installation is left in place.")},
    {Kind::UninstallEnds, Outcome::Failed,
     Attention("It did not start, or did not end in 60 seconds.")},
    {Kind::Insecure, Outcome::Plain,
     Attention("The product's directories are not secure. No service was started.")},
    {Kind::FoundAdapter, Outcome::Plain, {}, &AdapterThatWasFound},
    {Kind::AdapterError, Outcome::Plain, Attention("No adapter could be looked at.")},
    {Kind::CreateTask, Outcome::Failed, Attention("The task is not scheduled.")},
    {Kind::DeleteTask, Outcome::Absent, Expected("There was no such task.")},
    {Kind::DeleteTask, Outcome::Failed, Attention("The task may still be scheduled.")},
};

Ruling JudgeItem(const Item& item, const Evidence& log) {
    if (item.kind == Kind::Unknown) {
        return {Judgement::Unknown, "The program writes no such line."};
    }
    for (const Rule& rule : Rules) {
        if (rule.kind == item.kind && rule.outcome == item.outcome) {
            return rule.judge != nullptr ? rule.judge(item, log) : rule.ruling;
        }
    }
    return item.outcome == Outcome::Missing
               ? Attention("There is no verdict: the run, or this step, was cut off here.")
               : Fine;
}

}  // namespace

void Judge(Report& report) {
    if (!report.begins) {
        report.findings.emplace_back("The log's beginning is missing.");
    }
    if (!report.ends) {
        report.findings.emplace_back(
            "The log's end is missing: the run, or its capture, was cut "
            "off.");
    }
    const Evidence evidence(report);
    for (Section& section : report.sections) {
        if (section.items.empty() && !section.mayBeEmpty && report.ends) {
            report.findings.push_back("Nothing stands below \"" + std::string(section.title) +
                                      "\": this step was cut off.");
        }
        for (Item& item : section.items) {
            const Ruling ruling = JudgeItem(item, evidence);
            item.judgement = ruling.judgement;
            item.reason = ruling.reason;
        }
    }
}

bool NeedsAttention(const Report& report) {
    return !report.findings.empty() || Count(report, Judgement::Attention) > 0;
}

std::size_t Count(const Report& report, Judgement judgement) {
    std::size_t count = 0;
    for (const Section& section : report.sections) {
        count += static_cast<std::size_t>(
            std::ranges::count(section.items, judgement, &Item::judgement));
    }
    return count;
}

}  // namespace reader
