#include "log_reader/judge.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace reader {

namespace {

struct Finding {
    Judgement judgement;
    std::string_view reason;
};

constexpr Finding Fine = {Judgement::Fine, {}};

constexpr Finding Expected(std::string_view reason) {
    return {Judgement::Expected, reason};
}

constexpr Finding Attention(std::string_view reason) {
    return {Judgement::Attention, reason};
}

// ---- What else the log says

template <typename Predicate>
bool AnyItem(const Report& log, const Predicate& predicate) {
    return std::ranges::any_of(log.sections, [&](const Section& section) {
        return std::ranges::any_of(section.items, predicate);
    });
}

// Whether there is such an item of the same name.
bool Says(const Report& log, Kind kind, Outcome outcome, const std::string& name) {
    return AnyItem(log, [&](const Item& item) {
        return item.kind == kind && item.outcome == outcome && item.names.front() == name;
    });
}

// Whether the path is the directory, or lies in it.
bool IsBelow(std::string_view path, std::string_view directory) {
    while (directory.ends_with('\\')) {
        directory.remove_suffix(1);
    }
    return path.starts_with(directory) &&
           (path.size() == directory.size() || path[directory.size()] == '\\');
}

// Whether something was done in the directory, or found at it, that shows that it is there.
bool IsThere(const Report& log, const std::string& directory) {
    return AnyItem(log, [&](const Item& item) {
        switch (item.kind) {
            case Kind::CreateDirectory:
            case Kind::SetAccess:
                return item.outcome == Outcome::Done && IsBelow(item.names.front(), directory);
            case Kind::CopyFile:
                return item.outcome == Outcome::Done && IsBelow(item.names[1], directory);
            case Kind::CheckPath:
            case Kind::CheckChildren:
                return item.outcome == Outcome::Failed && item.names.front() == directory;
            default:
                return false;
        }
    });
}

// ---- The rules that look at more than the item

Finding StopThatFailed(const Item& item, const Report& log) {
    const std::string& name = item.names.front();
    if (Says(log, Kind::StartService, Outcome::Done, name)) {
        return Expected("It was stopped already: what runs does not start again, as it did later.");
    }
    if (Says(log, Kind::StartService, Outcome::Failed, name)) {
        return Attention(
            "It did not start later either: it runs on as it was, or is not installed, or the "
            "program had no right to it.");
    }
    return Expected(
        "Most often it was stopped already or is not installed; this run does not start it, so the "
        "log cannot tell whether it runs on.");
}

Finding StartThatFailed(const Item& item, const Report& log) {
    const std::string& name = item.names.front();
    if (Says(log, Kind::StopService, Outcome::Done, name)) {
        return Attention("It was stopped and does not start again.");
    }
    if (Says(log, Kind::StopService, Outcome::Failed, name)) {
        return Attention(
            "It did not stop before either: it runs on as it was, or is not installed, or the "
            "program had no right to it.");
    }
    return Attention("It does not start, or is not installed, or runs already.");
}

// Of a whole key the name of the value is empty. It is made before it is deleted, so it is there.
Finding SettingNotDeleted(const Item& item, const Report& /*log*/) {
    return item.names.front().ends_with("\\=")
               ? Attention("The key could not be deleted: the program had no right to it.")
               : Expected("There was no such setting.");
}

Finding FileNotDeleted(const Item& item, const Report& log) {
    const bool replaced = AnyItem(log, [&](const Item& other) {
        return other.kind == Kind::CopyFile && other.outcome == Outcome::Done &&
               other.names[1] == item.names.front();
    });
    return replaced ? Expected("There was none yet, or the copy replaced it.")
                    : Attention("It could not be deleted, or there is none, and none was copied.");
}

Finding DirectoryNotCreated(const Item& item, const Report& log) {
    return IsThere(log, item.names.front()) ? Expected("It was there already.")
                                            : Attention("Nothing shows that it was there already.");
}

Finding FileNotCopied(const Item& item, const Report& log) {
    if (item.names[2] == "true") {
        return Attention(
            "It did not come from the driver's folder: it is not there, or could not "
            "be written.");
    }
    const bool newDirectory = AnyItem(log, [&](const Item& other) {
        return other.kind == Kind::CreateDirectory && other.outcome == Outcome::Done &&
               IsBelow(item.names[1], other.names.front());
    });
    return newDirectory
               ? Attention(
                     "There was none to keep, since its directory is new, and none came from "
                     "the driver's folder.")
               : Expected("There was one, which is kept.");
}

Finding AdapterThatWasFound(const Item& /*item*/, const Report& log) {
    const bool wrote =
        AnyItem(log, [](const Item& other) { return other.kind == Kind::WriteFeature; });
    return wrote || !log.ends ? Fine
                              : Attention("Its feature was not enabled: no setting was written.");
}

// ---- All rules

struct Rule {
    Kind kind = Kind::Unknown;
    Outcome outcome = Outcome::Failed;
    Finding finding = Fine;
    Finding (*judge)(const Item& item, const Report& log) = nullptr;  // in place of the finding
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

Finding JudgeItem(const Item& item, const Report& log) {
    if (item.kind == Kind::Unknown) {
        return {Judgement::Unknown, "The program writes no such line."};
    }
    for (const Rule& rule : Rules) {
        if (rule.kind == item.kind && rule.outcome == item.outcome) {
            return rule.judge != nullptr ? rule.judge(item, log) : rule.finding;
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
    for (Section& section : report.sections) {
        if (section.items.empty() && !section.mayBeEmpty && report.ends) {
            report.findings.push_back("Nothing stands below \"" + section.title +
                                      "\": this step was cut off.");
        }
        for (Item& item : section.items) {
            const Finding finding = JudgeItem(item, report);
            item.judgement = finding.judgement;
            item.reason = finding.reason;
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
