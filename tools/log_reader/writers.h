#pragma once

#include "log_reader/report.h"
#include "log_reader/rollout.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace reader {

// A judged report, for a terminal, for a program and for a browser. The text has the log's own
// bytes, the others are ASCII.
std::string WriteText(const Report& report);
std::string WriteJson(const Report& report);
std::string WriteHtml(const Report& report);

// One of many logs on a line for a program: a judged report, or why there is none. Paths are as
// ShownName has them.
std::string WriteJsonLine(std::string_view path, const Report& report);
std::string WriteJsonLine(std::string_view path, std::string_view error);

// What is to be told of many logs, for a terminal, in UTF-8, and for a browser, in ASCII.
void WriteText(std::ostream& output, const Rollout& rollout);
void WriteHtml(std::ostream& output, const Rollout& rollout);

// How many of the logs that have been read these are: "12.5 %".
std::string Share(std::size_t logs, const Rollout& rollout);

// "ok", "expected", "attention" or "unknown".
std::string_view NameOf(Judgement judgement);

// Whether a character of the log shows nothing by itself, and whether it is one of ASCII's.
bool IsControl(char character);
bool IsAscii(char character);

// In a sentence, how the run went, or how many did how.
std::string Summary(const Report& report);
std::string Summary(const Rollout& rollout);

}  // namespace reader
