#include "log_reader/judge.h"
#include "log_reader/writers.h"

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <vector>

namespace reader {

namespace {

constexpr std::size_t LabelWidth = 12;
constexpr std::size_t NumberWidth = 6;

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size() + 1), ' ');
    return text;
}

// Characters that could control a terminal are shown escaped.
std::string Shown(std::string_view text, std::size_t indent) {
    std::string shown;
    for (const char character : text) {
        if (character == '\n') {
            shown += '\n' + std::string(indent, ' ');
        } else {
            shown += character == '\t' ? ' ' : IsControl(character) ? '?' : character;
        }
    }
    return shown;
}

std::string Lines(const Item& item, const std::string& label) {
    const std::string start =
        Padded("  " + label, LabelWidth) + Padded(std::to_string(item.line), NumberWidth);
    std::string lines = start + Shown(item.text, start.size()) + '\n';
    if (!item.reason.empty()) {
        lines += std::string(start.size() + 2, ' ') + std::string(item.reason) + '\n';
    }
    return lines;
}

constexpr std::size_t Width = 100;

// The number of characters that a UTF-8 text displays.
std::size_t Columns(std::string_view text) {
    constexpr unsigned char MaskOfMore = 0xC0;
    constexpr unsigned char MarkOfMore = 0x80;
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char byte) {
        return (static_cast<unsigned char>(byte) & MaskOfMore) != MarkOfMore;
    }));
}

// Where to break the text so that the first part takes at most so many columns: at a blank if there
// is one.
std::size_t BreakOf(std::string_view text, std::size_t columns) {
    std::size_t end = std::min(columns, text.size());
    while (end < text.size() &&
           (Columns(text.substr(0, end)) < columns || Columns(text.substr(end, 1)) == 0)) {
        ++end;
    }
    const std::size_t blank = end < text.size() ? text.find_last_of(' ', end) : end;
    return blank == std::string_view::npos || blank == 0 ? end : blank;
}

// On as many lines as needed; the first begins with `start`, the others are indented as far.
std::string Fitted(std::string_view text, const std::string& start) {
    std::string fitted;
    std::string begin = start;
    do {
        const std::size_t end = BreakOf(text, Width - start.size());
        fitted += begin + std::string(text.substr(0, end)) + '\n';
        text.remove_prefix(end);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        begin.assign(start.size(), ' ');
    } while (!text.empty());
    return fitted;
}

std::string RightAligned(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

}  // namespace

std::string_view NameOf(Judgement judgement) {
    switch (judgement) {
        case Judgement::Fine:
            return "ok";
        case Judgement::Expected:
            return "expected";
        case Judgement::Attention:
            return "attention";
        default:
            return "unknown";
    }
}

bool IsAscii(char character) {
    constexpr unsigned char LastOfAscii = 0x7F;
    return static_cast<unsigned char>(character) <= LastOfAscii;
}

bool IsControl(char character) {
    constexpr unsigned char OtherControls = 0xA0;  // end before this
    const auto code = static_cast<unsigned char>(character);
    return IsAscii(character) ? code < ' ' || character == '\x7F' : code < OtherControls;
}

std::string Summary(const Report& report) {
    const std::size_t matters = Count(report, Judgement::Attention) + report.findings.size();
    std::string summary = matters == 0   ? "Nothing needs attention"
                          : matters == 1 ? "1 thing needs attention"
                                         : std::to_string(matters) + " things need attention";
    summary += " (" + std::to_string(Count(report, Judgement::Fine)) + " ok, " +
               std::to_string(Count(report, Judgement::Expected)) + " failed as expected";
    if (const std::size_t unknown = Count(report, Judgement::Unknown)) {
        summary += ", " + std::to_string(unknown) + " not the program's";
    }
    return summary + ").";
}

std::string WriteText(const Report& report) {
    std::string text = Summary(report) + '\n';
    for (const std::string& note : report.notes) {
        text += "Note: " + note + ".\n";
    }
    for (const std::string& finding : report.findings) {
        text += "ATTENTION: " + Shown(finding, 0) + '\n';
    }
    for (const Section& section : report.sections) {
        text += '\n' +
                std::string(section.title.empty() ? "Before the first section" : section.title) +
                '\n';
        for (const Item& item : section.items) {
            text += Lines(item, item.judgement == Judgement::Attention
                                    ? "ATTENTION"
                                    : std::string(NameOf(item.judgement)));
        }
    }
    return text;
}

std::string Summary(const Rollout& rollout) {
    std::string summary = std::to_string(rollout.Read()) +
                          (rollout.Read() == 1 ? " log read: " : " logs read: ") +
                          std::to_string(rollout.InOrder()) + " in order, " +
                          std::to_string(rollout.NeedAttention()) + " needing attention.";
    return summary + ' ' + std::to_string(rollout.NotRead().size()) + " not readable.";
}

std::string Share(std::size_t logs, const Rollout& rollout) {
    constexpr std::size_t Thousand = 1000;
    constexpr std::size_t Ten = 10;
    const std::size_t share = (logs * Thousand + rollout.Read() / 2) / rollout.Read();
    return std::to_string(share / Ten) + '.' + std::to_string(share % Ten) + " %";
}

void WriteText(std::ostream& output, const Rollout& rollout) {
    constexpr std::size_t CountWidth = 7;
    constexpr std::size_t ShareWidth = 9;
    output << Summary(rollout) << '\n';
    const std::vector<std::string> machines = rollout.Machines();
    for (const Finding* finding : rollout.Findings()) {
        const std::string count = RightAligned(std::to_string(finding->logs.size()), CountWidth) +
                                  RightAligned(Share(finding->logs.size(), rollout), ShareWidth) +
                                  "  ";
        const std::string indent(count.size(), ' ');
        output << '\n' << Fitted(finding->what, count);
        if (!finding->reason.empty()) {
            output << Fitted(finding->reason, indent);
        }
        if (!finding->names.empty()) {
            output << Fitted(FirstNames(*finding), indent);
        }
        output << Fitted(FirstMachines(*finding, machines), indent);
    }
    if (!rollout.NotRead().empty()) {
        output << "\nNot readable\n";
    }
    for (const Unreadable& log : rollout.NotRead()) {
        output << Fitted(log.path + ": " + log.reason, "  ");
    }
}

}  // namespace reader
