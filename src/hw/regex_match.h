#pragma once

#include <string>

// Whether the whole text matches the pattern, a regular expression in the ECMAScript grammar, case
// aside. A text of any length and content may be given. What is an error to the engine does not
// match: a bad pattern, or a limit that is reached.
bool RegexMatchesWhole(const std::wstring& pattern, const std::wstring& text);
