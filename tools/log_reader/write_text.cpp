#include "log_reader/judge.h"
#include "log_reader/writers.h"

#include <algorithm>
#include <cstddef>

namespace reader {

namespace {

constexpr std::size_t LabelWidth = 12;
constexpr std::size_t NumberWidth = 6;

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size() + 1), ' ');
    return text;
}

// What could make a terminal do something is shown as what it is not.
std::string Shown(const std::string& text, std::size_t indent) {
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
    constexpr unsigned char OtherControls = 0xA0;  // end there
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
        text += '\n' + (section.title.empty() ? "Before the first section" : section.title) + '\n';
        for (const Item& item : section.items) {
            text += Lines(item, item.judgement == Judgement::Attention
                                    ? "ATTENTION"
                                    : std::string(NameOf(item.judgement)));
        }
    }
    return text;
}

}  // namespace reader
