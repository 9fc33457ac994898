#pragma once

#include "log_reader/messages.h"
#include "log_reader/report.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

namespace reader {

// Says in one line why the input is not a log.
struct NotALog : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The last run of a log, not yet judged. Throws NotALog.
Report ReadLog(std::string_view bytes);

// Determines a log's encoding from all its bytes.
class EncodingFinder {
public:
    enum class Encoding { Bytes, Utf8, Utf16LowFirst, Utf16HighFirst };

    // The next bytes of the log.
    void Take(std::string_view bytes);

    [[nodiscard]] Encoding Found() const;
    [[nodiscard]] bool Empty() const { return size_ == 0; }

private:
    void TakeUtf8(std::string_view bytes);

    std::size_t size_ = 0;
    std::array<std::size_t, 2> zeros_{};  // at even and odd positions
    bool utf8_ = true;
    bool ascii_ = true;
    int missing_ = 0;  // bytes of an incomplete character
};

// Reads a log piece by piece, once its encoding is known, and holds only its last run.
class LogReader {
public:
    using Encoding = EncodingFinder::Encoding;

    // A run that needs more memory than this is given up.
    explicit LogReader(Encoding encoding,
                       std::size_t longestRun = std::numeric_limits<std::size_t>::max());

    // Processes the lines that end in `bytes`, or all if these are the last. Returns how many bytes
    // that were; the next call must begin after them. The number of bytes must be even, unless they
    // are the last.
    std::size_t Take(std::string_view bytes, bool last);

    // Continues after bytes that are too many for a line, and gives the run up. Their number is
    // even.
    void SkipLine();

    // The result, not yet judged. Throws NotALog.
    Report Finish();

private:
    [[nodiscard]] std::size_t LineEnd(std::string_view bytes, bool lastOne) const;
    [[nodiscard]] std::string Decoded(std::string_view bytes) const;
    void TakeLine(std::string_view line);
    void Take(const Item& item);
    bool JoinTask(const Item& item);
    bool HasRoom(std::size_t bytes);
    void GiveUp();
    void Forget();
    void NoteEncoding();
    void NoteCodePage();

    Encoding encoding_;
    std::size_t longestRun_;
    Report report_{};
    std::size_t line_ = 0;
    std::size_t runs_ = 0;
    std::size_t held_ = 0;   // bytes for this run
    bool givenUp_ = false;   // this run
    bool skipping_ = false;  // to the end of the line
    bool headed_ = false;    // by any heading
    bool noSuchTask_ = false;
    std::string* task_ = nullptr;  // the text of the task whose lines are being joined
};

}  // namespace reader
