#pragma once

#include "verify/row.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace verify {

// A machine, compared with what a run with these actions leaves.
struct Report {
    std::wstring computer;
    std::string version;  // of this program
    std::uint32_t actions = 0;
    Rows rows{};
};

std::size_t Count(const Report& report, Verdict verdict);

// Checks the product's tables. Changes nothing. Needs COM on this thread.
Report Verify(std::uint32_t actions);

// The whole program but wmain, whose arguments it takes. Returns the exit status: 0 if all is in
// order, 1 if something differs, 2 if only something cannot be told, or nothing at all.
int RunVerify(int argumentCount, const wchar_t* const* arguments);

}  // namespace verify
