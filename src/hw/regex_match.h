#pragma once

#include <string>

// Whether the whole text matches the pattern, a regular expression in the ECMAScript grammar,
// ignoring case. The text may have any length and content. An engine error, for a bad pattern or a
// limit reached, counts as no match.
bool RegexMatchesWhole(const std::wstring& pattern, const std::wstring& text);
