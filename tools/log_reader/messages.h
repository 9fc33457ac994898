#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Every text that the program can write to its log.

namespace reader {

enum class Kind {
    RunBegins,
    RunEnds,
    Heading,       // of a section with items
    EmptyHeading,  // of one that may have none
    Usage,
    QuitApplication,
    StopService,
    StartApplication,
    StartService,
    DisableService,
    DeleteSetting,
    WriteSetting,
    WriteFeature,
    DeleteFile,
    CreateDirectory,
    CopyFile,
    CheckPath,
    CheckChildren,
    SetAccess,
    ResetChildren,
    FoundAdapter,
    AdapterError,
    CreateTask,
    DeleteTask,
    TaskError,   // within one of the two above
    NoSuchTask,  // the same
    TaskResult,  // their end
    UninstallMissing,
    UninstallBegins,
    UninstallEnds,
    Insecure,
    Unknown,  // no text of the program's
};

enum class Outcome {
    Plain,    // the text has no verdict
    Done,     // the verdict is good
    Failed,   // it is not
    Absent,   // there was nothing to act on
    Missing,  // the text lacks its verdict
};

struct Verdict {
    std::string_view text;
    Outcome outcome;
};

struct Message {
    Kind kind;
    std::string_view text;                // as in the sources, without line ends
    std::span<const Verdict> verdicts{};  // one of them completes the line
};

// In the order in which a line is compared with them.
std::span<const Message> Messages();

// The pieces of the format between its conversions.
std::vector<std::string_view> Pieces(std::string_view format);

// What each conversion matches, if `line` was written by `format`.
std::optional<std::vector<std::string>> Match(std::string_view format, std::string_view line);

// What each conversion of a line matches, in the line's own memory.
class Names {
public:
    static constexpr std::size_t Most = 4;

    using value_type = std::string_view;
    using const_iterator = const std::string_view*;

    explicit Names(std::size_t size = 0) : size_(size) {}

    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] std::string_view front() const { return names_[0]; }
    [[nodiscard]] std::string_view operator[](std::size_t index) const { return names_[index]; }
    [[nodiscard]] std::string_view& operator[](std::size_t index) { return names_[index]; }
    [[nodiscard]] const_iterator begin() const { return names_.data(); }
    [[nodiscard]] const_iterator end() const { return names_.data() + size_; }

private:
    std::size_t size_;
    std::array<std::string_view, Most> names_{};
};

// A line as the program writes it.
struct Line {
    std::string_view format;  // of the message and its verdict; lives as long as the program
    Kind kind = Kind::Unknown;
    Outcome outcome = Outcome::Plain;
    std::string_view verdict;  // its word; lives as long as well
    Names names;
};

// Nothing if the program does not write such a line.
std::optional<Line> Recognise(std::string_view line);

}  // namespace reader
