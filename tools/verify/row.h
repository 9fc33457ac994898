#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace verify {

enum class Verdict { Ok, Differs, Unknown };

// What was found of one thing; if nothing can be said of it, why.
struct Finding {
    Verdict verdict;
    std::wstring text;
};

// One row of a table of the product, as the machine has it.
struct Row {
    const char* kind;
    std::wstring name;
    std::wstring expected;
    Finding finding;
};

using Rows = std::vector<Row>;

Finding Found(bool asExpected, std::wstring text);
Finding CannotTell(std::wstring reason);

// For an error code of the platform, or a failed result of COM.
Finding CannotTell(DWORD error);

// The code with the system's message for it, if it has one.
std::wstring ErrorText(DWORD error);

// The texts with the separator between each two.
std::wstring Joined(const std::vector<std::wstring>& texts, const wchar_t* separator);

void Append(Rows& rows, Rows more);

}  // namespace verify
