#include "driver/case_mapping.h"

#include <locale>

namespace {

const std::ctype<wchar_t>& CaseFacet() {
    static const std::locale locale;  // keeps the facet alive; made once, on first use
    return std::use_facet<std::ctype<wchar_t>>(locale);
}

}  // namespace

void ToUpperInPlace(std::wstring& text) {
    CaseFacet().toupper(text.data(), text.data() + text.size());
}

void ToLowerInPlace(std::wstring& text) {
    CaseFacet().tolower(text.data(), text.data() + text.size());
}
