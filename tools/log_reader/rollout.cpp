#include "log_reader/rollout.h"

#include "log_reader/judge.h"
#include "log_reader/messages.h"
#include "log_reader/unicode.h"
#include "log_reader/writers.h"

#include <algorithm>
#include <array>
#include <functional>
#include <span>

namespace reader {

namespace {

// Damaged logs can yield any number of names.
constexpr std::size_t MostNames = 200;
constexpr std::size_t LongestName = 200;

constexpr std::string_view ItsOwn;  // the log's own word, one of a few

struct Words {
    Kind kind = {};
    std::array<std::string_view, 4> words;  // for the names of an item in turn
};

constexpr Words NamesByKind[] = {
    {Kind::QuitApplication, {"NAME", "TITLE", "PROGRAM", "NAME"}},
    {Kind::StartApplication, {"NAME", "ARGUMENTS"}},
    {Kind::DeleteSetting, {"SETTING"}},
    {Kind::WriteSetting, {"SETTING"}},
    {Kind::DeleteFile, {"PATH"}},
    {Kind::CreateDirectory, {"PATH"}},
    {Kind::CopyFile, {"SOURCE", "PATH", ItsOwn}},
    {Kind::CheckPath, {"PATH"}},
    {Kind::CheckChildren, {"PATH"}},
    {Kind::SetAccess, {"PATH"}},
    {Kind::ResetChildren, {"PATH"}},
    {Kind::FoundAdapter, {"NAME", "NUMBER"}},
    {Kind::AdapterError, {"NUMBER"}},
    {Kind::CreateTask, {"NAME", "PATH"}},
    {Kind::UninstallMissing, {"PROGRAM"}},
    {Kind::UninstallEnds, {"PROGRAM"}},
};

std::span<const std::string_view> WordsOf(Kind kind) {
    static constexpr std::array<std::string_view, 1> Name = {"NAME"};
    const auto* const row = std::ranges::find(NamesByKind, kind, &Words::kind);
    return row != std::end(NamesByKind) ? std::span<const std::string_view>(row->words) : Name;
}

// The item without what differs between machines.
std::string What(const Item& item) {
    const std::span<const std::string_view> words = WordsOf(item.kind);
    std::string what;
    std::size_t name = 0;
    for (const std::string_view piece : Pieces(item.format)) {
        if (name > 0) {
            what += words[name - 1] == ItsOwn ? item.names[name - 1] : words[name - 1];
        }
        what += piece;
        ++name;
    }
    if (item.kind == Kind::CreateTask || item.kind == Kind::DeleteTask) {
        what += " " + std::string(item.verdict);
    }
    std::ranges::replace(what, '\t', ' ');
    what.erase(what.find_last_not_of(' ') + 1);
    return what.erase(0, what.find_first_not_of(' '));
}

std::string FileName(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

std::string MachineOfFile(const std::string& path) {
    constexpr std::size_t Ending = std::string_view(".log").size();
    const std::string name = FileName(path);
    return name.size() > Ending && name[name.size() - Ending] == '.'
               ? name.substr(0, name.size() - Ending)
               : name;
}

// By the file's directory; by the file if the path does not contain that.
std::string MachineOfDirectory(const std::string& path) {
    const std::size_t end = path.find_last_of('/');
    const std::string name = end == std::string::npos ? "" : FileName(path.substr(0, end));
    return name.empty() || name == "." || name == ".." ? MachineOfFile(path) : name;
}

}  // namespace

std::string FirstNames(const Finding& finding) {
    constexpr std::size_t Few = 3;
    std::vector<std::pair<std::size_t, std::string>> names;
    for (const auto& [name, on] : finding.names) {
        names.emplace_back(on.logs, name);
    }
    std::ranges::stable_sort(names, std::greater(), &std::pair<std::size_t, std::string>::first);
    std::string first(finding.word);
    for (std::size_t index = 0; index < names.size() && index < Few; ++index) {
        auto& [logs, name] = names[index];
        std::ranges::replace_if(name, &IsControl, '?');
        first += (index == 0 ? ": " : ", ") + Utf8OfLog(name) + " on " + std::to_string(logs);
        if (index == 0) {
            first += logs == 1 ? " log" : " logs";
        }
    }
    return first + (names.size() > Few || finding.moreNames ? ", and others" : "");
}

std::string FirstMachines(const Finding& finding, const std::vector<std::string>& machines) {
    constexpr std::size_t Few = 5;
    std::string first;
    for (std::size_t index = 0; index < finding.logs.size() && index < Few; ++index) {
        first += (index > 0 ? ", " : "") + machines[finding.logs[index]];
    }
    if (finding.logs.size() > Few) {
        first += " and " + std::to_string(finding.logs.size() - Few) + " more";
    }
    return first;
}

void Rollout::Add(const std::string& path, const Report& report) {
    Note(path);
    ++read_;
    if (!NeedsAttention(report)) {
        return;
    }
    attention_.push_back(path);
    for (const std::string& finding : report.findings) {
        Found(finding, {}).what = finding;
    }
    for (const Section& section : report.sections) {
        for (const Item& item : section.items) {
            if (item.judgement == Judgement::Attention) {
                AddItem(item);
            }
        }
    }
}

void Rollout::AddItem(const Item& item) {
    Finding& finding = Found(std::string(item.format), std::string(item.reason));
    if (finding.what.empty()) {
        finding.what = What(item);
        finding.reason = item.reason;
        finding.word = item.names.empty() ? std::string_view() : WordsOf(item.kind).front();
    }
    if (item.names.empty()) {
        return;
    }
    const std::string name(item.names.front().substr(0, LongestName));
    if (finding.names.size() == MostNames && !finding.names.contains(name)) {
        finding.moreNames = true;
        return;
    }
    Finding::Name& named = finding.names[name];
    const std::uint32_t log = finding.logs.back();
    if (named.logs == 0 || named.last != log) {
        ++named.logs;
        named.last = log;
    }
}

// The finding of the last log.
Finding& Rollout::Found(const std::string& format, const std::string& reason) {
    Finding& finding = findings_[{format, reason}];
    const auto log = static_cast<std::uint32_t>(attention_.size() - 1);
    if (finding.logs.empty() || finding.logs.back() != log) {
        finding.logs.push_back(log);
    }
    return finding;
}

void Rollout::AddUnreadable(const std::string& path, std::string_view reason) {
    Note(path);
    unreadable_.push_back({path, std::string(reason)});
}

void Rollout::Note(const std::string& path) {
    const std::string name = FileName(path);
    if (read_ + unreadable_.size() == 0) {
        fileName_ = name;
    }
    oneFileName_ = oneFileName_ && name == fileName_;
}

std::vector<const Finding*> Rollout::Findings() const {
    std::vector<const Finding*> ranked;
    for (const auto& [key, finding] : findings_) {
        ranked.push_back(&finding);
    }
    std::ranges::stable_sort(ranked, std::greater(),
                             [](const Finding* finding) { return finding->logs.size(); });
    return ranked;
}

std::vector<std::string> Rollout::Machines() const {
    const bool byDirectory = oneFileName_ && read_ + unreadable_.size() > 1;
    std::vector<std::string> machines;
    std::map<std::string_view, std::size_t> logs;
    for (const std::string& path : attention_) {
        machines.push_back(byDirectory ? MachineOfDirectory(path) : MachineOfFile(path));
    }
    for (const std::string& machine : machines) {
        ++logs[machine];
    }
    std::vector<std::string> unique;
    for (std::size_t index = 0; index < machines.size(); ++index) {
        unique.push_back(logs[machines[index]] > 1 ? attention_[index] : machines[index]);
    }
    return unique;
}

}  // namespace reader
