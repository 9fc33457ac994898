#pragma once

#include "log_reader/report.h"

#include <string>
#include <string_view>

namespace reader {

// A judged report, for a terminal, for a program and for a browser. The text has the log's own
// bytes, the others are ASCII.
std::string WriteText(const Report& report);
std::string WriteJson(const Report& report);
std::string WriteHtml(const Report& report);

// "ok", "expected", "attention" or "unknown".
std::string_view NameOf(Judgement judgement);

// Whether a character of the log shows nothing by itself, and whether it is one of ASCII's.
bool IsControl(char character);
bool IsAscii(char character);

// In a sentence, how the run went.
std::string Summary(const Report& report);

}  // namespace reader
