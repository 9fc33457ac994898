#pragma once

#include "verify/row.h"
#include "verify/write.h"

#include <string>
#include <vector>

namespace test {

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
