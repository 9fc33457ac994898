#pragma once

#include "log_reader/messages.h"

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

enum class Judgement { Fine, Expected, Attention, Unknown };

// A line of the log, or the lines of a scheduled task.
struct Item {
    std::size_t line = 0;       // its number in the file, from 1
    std::string_view text;      // the log's own
    std::string_view format{};  // that the program writes it with, without a task's result lines
    Kind kind = Kind::Unknown;
    Names names{};
    Outcome outcome = Outcome::Plain;
    std::string_view verdict{};  // the log's word
    Judgement judgement = Judgement::Unknown;
    std::string_view reason{};
};

struct Section {
    std::size_t line = 0;
    std::string_view title;  // empty before the first one
    bool mayBeEmpty = true;
    std::vector<Item> items{};
};

// A run of the program, in the log's characters: one byte each.
struct Report {
    Report() = default;
    Report(Report&&) = default;
    Report& operator=(Report&&) = default;

    bool begins = false;
    bool ends = false;
    std::vector<Section> sections;
    std::vector<std::string> notes;     // about the file
    std::vector<std::string> findings;  // that need attention, apart from the items
    std::list<std::string> texts;       // that those of the items and sections point into
};

}  // namespace reader
