#pragma once

#include <string>

// Replace each character by its upper-case or lower-case form, by the wide-character facet of the
// default locale. The program never sets a locale, so this is the mapping of the "C" locale.
void ToUpperInPlace(std::wstring& text);
void ToLowerInPlace(std::wstring& text);
