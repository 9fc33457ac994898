#pragma once

#include "log_reader/report.h"

namespace reader {

// Fills in what is to be thought of each item and of the whole.
void Judge(Report& report);

bool NeedsAttention(const Report& report);

std::size_t Count(const Report& report, Judgement judgement);

}  // namespace reader
