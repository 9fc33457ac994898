#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A network adapter model: the pattern of its description, and its bits in the hardware bitmask.
struct AdapterPattern {
    std::wstring pattern;  // see RegexMatchesWhole
    std::uint32_t mask;
};

// The adapters of the maker's own brand. No step reads this table; it is kept on purpose.
extern const std::vector<AdapterPattern> BrandPatternTable;

// The adapters to look for. The first row that matches a description counts.
extern const std::vector<AdapterPattern> HardwarePatternTable;
