#pragma once

#include "log_reader/report.h"
#include "log_reader/rollout.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace reader {

// A judged report, for a terminal, for a program and for a browser. The text contains the log's own
// bytes; the others are ASCII.
std::string WriteText(const Report& report);
std::string WriteJson(const Report& report);
std::string WriteHtml(const Report& report);

// One of many logs on one line, for a program: a judged report, or why there is none. Paths come
// from ShownName.
std::string WriteJsonLine(std::string_view path, const Report& report);
std::string WriteJsonLine(std::string_view path, std::string_view error);

// The summary for many logs, for a terminal, in UTF-8, and for a browser, in ASCII.
void WriteText(std::ostream& output, const Rollout& rollout);
void WriteHtml(std::ostream& output, const Rollout& rollout);

// The share of these logs among those that were read: "12.5 %".
std::string Share(std::size_t logs, const Rollout& rollout);

// "ok", "expected", "attention" or "unknown".
std::string_view NameOf(Judgement judgement);

// Whether a character of the log is invisible, and whether it is ASCII.
bool IsControl(char character);
bool IsAscii(char character);

// One sentence: how the run went, or how many went how.
std::string Summary(const Report& report);
std::string Summary(const Rollout& rollout);

}  // namespace reader
