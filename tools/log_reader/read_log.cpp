#include "log_reader/read_log.h"

#include "log_reader/unicode.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <utility>

namespace reader {

namespace {

using Encoding = EncodingFinder::Encoding;

constexpr char HowToCapture[] = "; capture the next one with: cmd /c \"Finaset.exe > finaset.log\"";

// ---- From the file's bytes to the log's characters

constexpr char32_t LastOfLog = 0xFF;
constexpr char32_t ByteOrderMark = 0xFEFF;

// The program itself writes "?" for a character that does not fit in a byte.
void Append(std::string& text, char32_t character) {
    if (character != ByteOrderMark) {
        text += character <= LastOfLog ? static_cast<char>(character) : '?';
    }
}

char32_t ByteAt(std::string_view bytes, std::size_t index) {
    return static_cast<unsigned char>(bytes[index]);
}

void AppendUtf16(std::string& text, std::string_view bytes, std::size_t highByte) {
    constexpr char32_t SecondSurrogates = 0xDC00;
    constexpr char32_t AfterSurrogates = 0xE000;
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        const char32_t unit =
            ByteAt(bytes, index + highByte) << 8U | ByteAt(bytes, index + 1 - highByte);
        if (unit < SecondSurrogates || unit >= AfterSurrogates) {  // a pair is one character
            Append(text, unit);
        }
    }
}

void AppendDecodedUtf8(std::string& text, std::string_view bytes) {
    while (!bytes.empty()) {
        if (const std::optional<char32_t> character = TakeUtf8(bytes)) {
            Append(text, *character);
        } else {  // it changed after it was inspected
            bytes.remove_prefix(1);
            text += '?';
        }
    }
}

bool IsUtf16(Encoding encoding) {
    return encoding == Encoding::Utf16LowFirst || encoding == Encoding::Utf16HighFirst;
}

// ---- From lines to items

// Where an item begins within the line of another that was left without a verdict; the end of the
// line if none does.
std::size_t NextItem(std::string_view line) {
    std::size_t next = line.size();
    for (const std::string_view opening :
         {"....Stopping ", "....Starting ", "....Disabling Service "}) {
        if (line.starts_with(opening.substr(4))) {
            next = std::min(next, line.find(opening));
        }
    }
    if (line.starts_with("Stopping Application ")) {
        // No further: a line may be long and contain many.
        const std::string_view item = line.substr(0, next);
        const std::size_t title = item.find("....with Window Title ");
        if (title != std::string_view::npos) {
            next = std::min(next, item.find(" Stopping ", title));
        }
    }
    return next == line.size() ? next : line.find_first_not_of(" .", next);
}

}  // namespace

// ---- The encoding

void EncodingFinder::Take(std::string_view bytes) {
    if (utf8_) {
        TakeUtf8(bytes);
    }
    // A log contains no zero.
    const std::size_t first = std::min(bytes.find('\0'), bytes.size());
    for (std::size_t index = first; index < bytes.size(); ++index) {
        zeros_[(size_ + index) % 2] += bytes[index] == '\0' ? 1U : 0U;
    }
    size_ += bytes.size();
}

void EncodingFinder::TakeUtf8(std::string_view bytes) {
    constexpr int MostBytes = 4;
    constexpr std::uint64_t HighBits = 0x8080808080808080;
    std::size_t index = 0;
    while (index < bytes.size()) {
        std::uint64_t next = HighBits;
        if (missing_ == 0 && bytes.size() - index >= sizeof next) {
            std::memcpy(&next, &bytes[index], sizeof next);
        }
        if ((next & HighBits) == 0) {
            index += sizeof next;
            continue;
        }
        const int ones = std::countl_one(static_cast<unsigned char>(bytes[index]));
        if (missing_ > 0 ? ones != 1 : ones == 1 || ones > MostBytes) {
            utf8_ = false;
            return;
        }
        ascii_ = ascii_ && ones == 0;
        missing_ = missing_ > 0 ? missing_ - 1 : std::max(ones - 1, 0);
        ++index;
    }
}

// In UTF-16 nearly every second byte is a zero.
Encoding EncodingFinder::Found() const {
    if (zeros_[1] > size_ / 4) {
        return Encoding::Utf16LowFirst;
    }
    if (zeros_[0] > size_ / 4) {
        return Encoding::Utf16HighFirst;
    }
    return utf8_ && !ascii_ && missing_ == 0 ? Encoding::Utf8 : Encoding::Bytes;
}

// ---- The reader

LogReader::LogReader(Encoding encoding, std::size_t longestRun)
    : encoding_(encoding), longestRun_(longestRun) {}

std::size_t LogReader::Take(std::string_view bytes, bool last) {
    std::size_t skipped = 0;
    if (skipping_) {
        skipped = LineEnd(bytes, /*lastOne=*/false);
        if (skipped == 0) {
            return bytes.size();
        }
        skipping_ = false;
        ++line_;
        bytes.remove_prefix(skipped);
    }
    const std::size_t size = last ? bytes.size() : LineEnd(bytes, /*lastOne=*/true);
    if (givenUp_) {
        report_.texts.clear();
    }
    std::string_view rest = report_.texts.emplace_front(Decoded(bytes.substr(0, size)));
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        TakeLine(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return skipped + size;
}

void LogReader::SkipLine() {
    skipping_ = true;
    GiveUp();
}

// The position after the first or the last line end in the bytes; 0 if there is none.
std::size_t LogReader::LineEnd(std::string_view bytes, bool lastOne) const {
    if (!IsUtf16(encoding_)) {
        return (lastOne ? bytes.rfind('\n') : bytes.find('\n')) + 1;
    }
    const std::string_view end = encoding_ == Encoding::Utf16LowFirst ? std::string_view("\n\0", 2)
                                                                      : std::string_view("\0\n", 2);
    std::size_t at = lastOne ? bytes.rfind(end) : bytes.find(end);
    while (at != std::string_view::npos && at % 2 != 0) {
        at = lastOne ? bytes.rfind(end, at - 1) : bytes.find(end, at + 1);
    }
    return at == std::string_view::npos ? 0 : at + end.size();
}

// In the log's own characters.
std::string LogReader::Decoded(std::string_view bytes) const {
    if (encoding_ == Encoding::Bytes) {
        return std::string(bytes);
    }
    std::string text;
    if (encoding_ == Encoding::Utf8) {
        AppendDecodedUtf8(text, bytes);
    } else {
        AppendUtf16(text, bytes, encoding_ == Encoding::Utf16LowFirst ? 1U : 0U);
    }
    return text;
}

void LogReader::TakeLine(std::string_view line) {
    ++line_;
    HasRoom(line.size());
    while (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    if (line.find_first_not_of('-') == std::string_view::npos) {
        return;  // empty, or around a heading
    }
    while (!line.empty()) {
        const std::size_t next = NextItem(line);
        Item item = {.line = line_, .text = line.substr(0, next)};
        if (const std::optional<Line> known = Recognise(item.text)) {
            item.format = known->format;
            item.kind = known->kind;
            item.names = known->names;
            item.outcome = known->outcome;
            item.verdict = known->verdict;
        }
        Take(item);
        line.remove_prefix(next);
    }
}

void LogReader::Take(const Item& item) {
    constexpr std::size_t MostOfASection = 16;  // enough for nearly all
    const bool task = item.kind == Kind::CreateTask || item.kind == Kind::DeleteTask;
    switch (item.kind) {
        case Kind::RunBegins:
            ++runs_;
            report_.begins = true;
            report_.ends = false;
            Forget();
            held_ = 0;
            givenUp_ = false;
            return;
        case Kind::RunEnds:
            report_.ends = true;
            return;
        case Kind::Heading:
        case Kind::EmptyHeading:
            headed_ = true;
            if (HasRoom(sizeof(Section))) {
                report_.sections.push_back({.line = item.line,
                                            .title = item.text,
                                            .mayBeEmpty = item.kind != Kind::Heading});
            }
            return;
        default:
            if ((!task && JoinTask(item)) || !HasRoom(sizeof(Item))) {
                return;
            }
    }
    if (report_.sections.empty()) {
        report_.sections.emplace_back();
    }
    std::vector<Item>& items = report_.sections.back().items;
    if (items.empty()) {
        items.reserve(MostOfASection);
    }
    items.push_back(item);
    if (task) {
        items.back().outcome = Outcome::Missing;  // its result is on a line of its own
        task_ = nullptr;
    }
}

// A task's lines up to its result belong to it, including those of an error's text.
bool LogReader::JoinTask(const Item& item) {
    if (report_.sections.empty() || report_.sections.back().items.empty()) {
        return false;
    }
    Item& task = report_.sections.back().items.back();
    if ((task.kind != Kind::CreateTask && task.kind != Kind::DeleteTask) || !task.verdict.empty()) {
        return false;
    }
    if (!HasRoom(item.text.size())) {
        return true;
    }
    if (task_ == nullptr) {
        task_ = &report_.texts.emplace_back(task.text);
    }
    *task_ += '\n';
    *task_ += item.text;
    task.text = *task_;
    noSuchTask_ |= item.kind == Kind::NoSuchTask;
    if (item.kind == Kind::TaskResult) {
        task.verdict = item.verdict;
        task.outcome = noSuchTask_ ? Outcome::Absent : item.outcome;
        noSuchTask_ = false;
    }
    return true;
}

bool LogReader::HasRoom(std::size_t bytes) {
    held_ += bytes;
    if (held_ > longestRun_) {
        GiveUp();
    }
    return !givenUp_;
}

void LogReader::GiveUp() {
    givenUp_ = true;
    Forget();
}

// Everything except the text being read.
void LogReader::Forget() {
    report_.sections.clear();
    report_.texts.resize(std::min<std::size_t>(report_.texts.size(), 1));
    task_ = nullptr;
}

Report LogReader::Finish() {
    if (!report_.begins && !report_.ends && !headed_) {
        throw NotALog("it is not a log of Finaset: it has none of its banners");
    }
    if (givenUp_) {
        throw NotALog("its run is too long to be read with others: read it alone");
    }
    NoteEncoding();
    NoteCodePage();
    if (runs_ > 1) {
        report_.notes.push_back("The file holds " + std::to_string(runs_) +
                                " runs: this is the last one");
    }
    return std::move(report_);
}

void LogReader::NoteEncoding() {
    if (encoding_ != Encoding::Bytes) {
        report_.notes.push_back(
            std::string(IsUtf16(encoding_)
                            ? "The file is UTF-16, as PowerShell's > writes it: it is read all the "
                              "same, but what is not ASCII in it may be wrong"
                            : "The file is UTF-8, so something has rewritten the log: it is read "
                              "all the same, but what is not ASCII in it may be wrong") +
            HowToCapture);
    }
}

// The sign in the application's title shows whether the bytes are as the program wrote them.
void LogReader::NoteCodePage() {
    if (encoding_ != Encoding::Bytes) {
        return;
    }
    for (const Section& section : report_.sections) {
        for (const Item& item : section.items) {
            if (item.kind != Kind::QuitApplication) {
                continue;
            }
            const std::string_view title = item.names[1];
            if (title.starts_with("Tarsel") && title.find('\xAE') == std::string_view::npos) {
                report_.notes.push_back(
                    std::string("The file went through a console, whose code page has changed what "
                                "is not ASCII in it: names may be wrong") +
                    HowToCapture);
                return;
            }
        }
    }
}

Report ReadLog(std::string_view bytes) {
    EncodingFinder encoding;
    encoding.Take(bytes);
    if (encoding.Empty()) {
        throw NotALog("it is empty");
    }
    LogReader reader(encoding.Found());
    reader.Take(bytes, /*last=*/true);
    return reader.Finish();
}

}  // namespace reader
