#include "log_reader/read_log.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace reader {

namespace {

constexpr char HowToCapture[] = "; capture the next one with: cmd /c \"Finaset.exe > finaset.log\"";

// ---- From the file's bytes to the log's characters

using CodePoint = std::uint32_t;

constexpr CodePoint LastOfLog = 0xFF;
constexpr CodePoint ByteOrderMark = 0xFEFF;

// The program writes what it cannot write in one byte in the same way.
void Append(std::string& text, CodePoint character) {
    if (character != ByteOrderMark) {
        text += character <= LastOfLog ? static_cast<char>(character) : '?';
    }
}

CodePoint ByteAt(std::string_view bytes, std::size_t index) {
    return static_cast<unsigned char>(bytes[index]);
}

// A log holds no zero, and of UTF-16 every second byte is one, nearly.
bool IsUtf16(std::string_view bytes, std::size_t firstHighByte) {
    std::size_t zeros = 0;
    for (std::size_t index = firstHighByte; index < bytes.size(); index += 2) {
        zeros += bytes[index] == '\0' ? 1U : 0U;
    }
    return zeros > bytes.size() / 4;
}

std::string FromUtf16(std::string_view bytes, std::size_t highByte) {
    constexpr CodePoint SecondSurrogates = 0xDC00;
    constexpr CodePoint AfterSurrogates = 0xE000;
    std::string text;
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        const CodePoint unit =
            ByteAt(bytes, index + highByte) << 8U | ByteAt(bytes, index + 1 - highByte);
        if (unit < SecondSurrogates || unit >= AfterSurrogates) {  // a pair is one character
            Append(text, unit);
        }
    }
    return text;
}

// Nothing if it is not UTF-8. Plain ASCII is.
std::optional<std::string> FromUtf8(std::string_view bytes) {
    constexpr int MostBytes = 4;
    constexpr unsigned BitsOfMore = 6;
    constexpr CodePoint MaskOfMore = 0x3F;
    const auto leadingOnes = [&](std::size_t index) {
        return index < bytes.size() ? std::countl_one(static_cast<unsigned char>(bytes[index])) : 0;
    };
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const int length = leadingOnes(index);
        if (length == 1 || length > MostBytes) {
            return std::nullopt;
        }
        CodePoint character = ByteAt(bytes, index) & (LastOfLog >> static_cast<unsigned>(length));
        for (int more = 1; more < length; ++more) {
            if (leadingOnes(++index) != 1) {
                return std::nullopt;
            }
            character = character << BitsOfMore | (ByteAt(bytes, index) & MaskOfMore);
        }
        Append(text, character);
    }
    return text;
}

std::string Decode(std::string_view bytes, Report& report) {
    for (const std::size_t highByte : {1U, 0U}) {
        if (IsUtf16(bytes, highByte)) {
            report.notes.push_back(
                std::string("The file is UTF-16, as PowerShell's > writes it: it is read all the "
                            "same, but what is not ASCII in it may be wrong") +
                HowToCapture);
            return FromUtf16(bytes, highByte);
        }
    }
    auto text = FromUtf8(bytes);
    if (!text) {
        return std::string(bytes);
    }
    if (*text != bytes) {
        report.notes.push_back(
            std::string("The file is UTF-8, so something has rewritten the log: it is read all the "
                        "same, but what is not ASCII in it may be wrong") +
            HowToCapture);
    }
    return *text;
}

// The sign in the application's title tells whether the bytes are those that the program wrote.
void NoteCodePage(Report& report) {
    if (!report.notes.empty()) {
        return;
    }
    for (const Section& section : report.sections) {
        for (const Item& item : section.items) {
            if (item.kind != Kind::QuitApplication) {
                continue;
            }
            const std::string& title = item.names[1];
            if (title.starts_with("Tarsel") && title.find('\xAE') == std::string::npos) {
                report.notes.push_back(
                    std::string("The file went through a console, whose code page has changed what "
                                "is not ASCII in it: names may be wrong") +
                    HowToCapture);
                return;
            }
        }
    }
}

// ---- From lines to items

// Where an item begins within the line of another, which was left without a verdict. The end of the
// line if none does.
std::size_t NextItem(std::string_view line) {
    std::size_t next = line.size();
    const std::size_t title = line.find("....with Window Title ");
    if (line.starts_with("Stopping Application ") && title != std::string_view::npos) {
        next = std::min(next, line.find(" Stopping ", title));
    }
    for (const std::string_view opening :
         {"....Stopping ", "....Starting ", "....Disabling Service "}) {
        if (line.starts_with(opening.substr(4))) {
            next = std::min(next, line.find(opening));
        }
    }
    return next == line.size() ? next : line.find_first_not_of(" .", next);
}

bool Fill(Item& item, Kind kind, const std::string& format, Outcome outcome,
          std::string_view verdict) {
    auto names = Match(format, item.text);
    if (!names) {
        return false;
    }
    item.kind = kind;
    item.names = std::move(*names);
    item.outcome = outcome;
    item.verdict = verdict;
    return true;
}

Item Recognise(std::size_t line, std::string_view text) {
    Item item = {.line = line, .text = std::string(text)};
    for (const Message& message : Messages()) {
        const std::string format(message.text);
        for (const Verdict& verdict : message.verdicts) {
            // Of a long verdict, the last word says it.
            const std::string_view word = verdict.text.substr(verdict.text.find_last_of('=') + 1);
            if (Fill(item, message.kind, format + std::string(verdict.text), verdict.outcome,
                     word)) {
                return item;
            }
        }
        const Outcome outcome = message.verdicts.empty() ? Outcome::Plain : Outcome::Missing;
        if (Fill(item, message.kind, format, outcome, {})) {
            return item;
        }
    }
    return item;
}

class Reader {
public:
    explicit Reader(Report& report) : report_(report) {}

    void TakeLine(std::string_view line) {
        ++line_;
        while (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (line.find_first_not_of('-') == std::string_view::npos) {
            return;  // empty, or around a heading
        }
        while (!line.empty()) {
            const std::size_t next = NextItem(line);
            Take(Recognise(line_, line.substr(0, next)));
            line.remove_prefix(next);
        }
    }

    [[nodiscard]] std::size_t Runs() const { return runs_; }

private:
    void Take(Item item) {
        switch (item.kind) {
            case Kind::RunBegins:
                ++runs_;
                report_.begins = true;
                report_.ends = false;
                report_.sections.clear();
                return;
            case Kind::RunEnds:
                report_.ends = true;
                return;
            case Kind::Heading:
            case Kind::EmptyHeading:
                report_.sections.push_back({.line = item.line,
                                            .title = std::move(item.text),
                                            .mayBeEmpty = item.kind != Kind::Heading});
                return;
            case Kind::CreateTask:
            case Kind::DeleteTask:
                item.outcome = Outcome::Missing;  // its result comes on a line of its own
                break;
            default:
                if (JoinTask(item)) {
                    return;
                }
        }
        if (report_.sections.empty()) {
            report_.sections.emplace_back();
        }
        report_.sections.back().items.push_back(std::move(item));
    }

    // The lines of a task up to its result belong to it, those that an error's text brings too.
    bool JoinTask(const Item& item) {
        if (report_.sections.empty() || report_.sections.back().items.empty()) {
            return false;
        }
        Item& task = report_.sections.back().items.back();
        if ((task.kind != Kind::CreateTask && task.kind != Kind::DeleteTask) ||
            !task.verdict.empty()) {
            return false;
        }
        task.text += '\n' + item.text;
        noSuchTask_ |= item.kind == Kind::NoSuchTask;
        if (item.kind == Kind::TaskResult) {
            task.verdict = item.verdict;
            task.outcome = noSuchTask_ ? Outcome::Absent : item.outcome;
            noSuchTask_ = false;
        }
        return true;
    }

    Report& report_;
    std::size_t line_ = 0;
    std::size_t runs_ = 0;
    bool noSuchTask_ = false;
};

}  // namespace

Report ReadLog(std::string_view bytes) {
    if (bytes.empty()) {
        throw NotALog("it is empty");
    }
    Report report;
    const std::string text = Decode(bytes, report);
    Reader reader(report);
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        reader.TakeLine(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    const bool headed =
        std::ranges::any_of(report.sections, [](const Section& each) { return each.line != 0; });
    if (!report.begins && !report.ends && !headed) {
        throw NotALog("it is not a log of Finaset: it has none of its banners");
    }
    NoteCodePage(report);
    if (reader.Runs() > 1) {
        report.notes.push_back("The file holds " + std::to_string(reader.Runs()) +
                               " runs: this is the last one");
    }
    return report;
}

}  // namespace reader
