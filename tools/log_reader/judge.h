#pragma once

#include "log_reader/report.h"

namespace reader {

// Fills in the finding for each item and for the whole log.
void Judge(Report& report);

bool NeedsAttention(const Report& report);

std::size_t Count(const Report& report, Judgement judgement);

}  // namespace reader
