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

// Whether it shows nothing by itself.
bool IsControl(char character);

// In a sentence, how the run went.
std::string Summary(const Report& report);

}  // namespace reader
