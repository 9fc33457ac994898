#pragma once

#include "verify/row.h"
#include "verify/write.h"

#include <windows.h>

#include <string>
#include <vector>

namespace test {

// The effect and result of a function that denies access, and the text of its error. That is not
// inline, on purpose: see log_texts.h.
template <typename Result>
Result Deny(Result result) {
    ::SetLastError(ERROR_ACCESS_DENIED);
    return result;
}
const std::wstring Denied = verify::ErrorText(ERROR_ACCESS_DENIED);

// Each row as "verdict, kind, name, expected, found", separated by bars.
inline std::vector<std::wstring> Shown(const verify::Rows& rows) {
    std::vector<std::wstring> lines;
    for (const verify::Row& row : rows) {
        const std::string start =
            std::string(verify::NameOf(row.finding.verdict)) + " | " + row.kind + " | ";
        lines.push_back(std::wstring(start.begin(), start.end()) + row.name + L" | " +
                        row.expected + L" | " + row.finding.text);
    }
    return lines;
}

}  // namespace test
