#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace verify {

enum class Verdict { Ok, Differs, Unknown };

// What was found about one thing, or why it is unknown.
struct Finding {
    Verdict verdict;
    std::wstring text;
};

// One row of a product table, as found on the machine.
struct Row {
    const char* kind;
    std::wstring name;
    std::wstring expected;
    Finding finding;
};

using Rows = std::vector<Row>;

Finding Found(bool asExpected, std::wstring text);
Finding CannotTell(std::wstring reason);

// For a Win32 error code, or a failed HRESULT.
Finding CannotTell(DWORD error);

// The code with the system's message, if it has one.
std::wstring ErrorText(DWORD error);

// The texts, joined with the separator.
std::wstring Joined(const std::vector<std::wstring>& texts, const wchar_t* separator);

void Append(Rows& rows, Rows more);

}  // namespace verify
