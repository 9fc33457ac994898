#pragma once

#include "log_reader/report.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace reader {

// Something that is wrong on some machines.
struct Finding {
    std::string what;                   // the item, with capitals for varying names
    std::string reason;                 // empty if `what` says all
    std::string_view word{};            // the capitals for the first name; empty without names
    std::vector<std::uint32_t> logs{};  // that have it, each once, by index in Machines()

    struct Name {
        std::size_t logs = 0;
        std::uint32_t last = 0;  // of them
    };
    std::map<std::string, Name> names{};  // each first name, with its number of logs
    bool moreNames = false;               // that came too late to count
};

// The most frequent names, in UTF-8: "NAME: Ardex on 300 logs, Corvo on 12, and others".
std::string FirstNames(const Finding& finding);

// Its first machines: "PC-1, PC-2, PC-3, PC-4, PC-5 and 307 more".
std::string FirstMachines(const Finding& finding, const std::vector<std::string>& machines);

struct Unreadable {
    std::string path;
    std::string reason;
};

// The summary for the logs of many machines. It keeps the names of logs that need attention or
// cannot be read, and only counts the others.
class Rollout {
public:
    // A judged log, with its path from ShownName.
    void Add(const std::string& path, const Report& report);
    void AddUnreadable(const std::string& path, std::string_view reason);

    [[nodiscard]] std::size_t Read() const { return read_; }
    [[nodiscard]] std::size_t InOrder() const { return read_ - attention_.size(); }
    [[nodiscard]] std::size_t NeedAttention() const { return attention_.size(); }
    [[nodiscard]] const std::vector<Unreadable>& NotRead() const { return unreadable_; }

    // Sorted by number of logs, highest first.
    [[nodiscard]] std::vector<const Finding*> Findings() const;

    // The names of the machines that need attention: the file names, or the directories' names if
    // all files have the same name. The full paths where two would be the same.
    [[nodiscard]] std::vector<std::string> Machines() const;

private:
    void Note(const std::string& path);
    void AddItem(const Item& item);
    Finding& Found(const std::string& format, const std::string& reason);

    std::size_t read_ = 0;
    std::string fileName_{};
    bool oneFileName_ = true;
    std::vector<std::string> attention_{};
    std::vector<Unreadable> unreadable_{};
    std::map<std::pair<std::string, std::string>, Finding> findings_{};  // by format and reason
};

}  // namespace reader
