#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A model of network adapter: what its description looks like, and the bits of the hardware bitmask
// that it stands for.
struct AdapterPattern {
    std::wstring pattern;  // see RegexMatchesWhole
    std::uint32_t mask;
};

// The adapters of the maker's own brand. No step reads this table: meant.
extern const std::vector<AdapterPattern> BrandPatternTable;

// The adapters that are looked for. The first row that matches a description counts.
extern const std::vector<AdapterPattern> HardwarePatternTable;
