#pragma once

#include "hw/adapter_patterns.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Which models of network adapter this machine has. 0 until the configure action sets it.
extern std::uint32_t g_hardwareBitmask;  // NOLINT(*-avoid-non-const-global-variables)

// Finds out which models of network adapter are present, keeps that in the registry as
// `resultValueName`, and returns it. The value `gateValueName` of the service parameters key, if
// there is one and it is not 1, is taken for the bitmask instead. Never fails: adapters that cannot
// be listed are none, and a bitmask that cannot be kept is returned all the same.
std::uint32_t ComputeHardwareBitmask(const std::wstring& gateValueName,
                                     const std::wstring& resultValueName);

// The descriptions of the adapters that are present, up or down, in the platform's order. Takes
// what GetAdaptersAddresses has filled, or nothing.
std::vector<std::wstring> ListPresentAdapterDescriptions(std::span<const std::byte> adapters);

// The mask of the first pattern of the table (the product's, if none is given) that matches the
// description, which is then logged; 0 if none does.
std::uint32_t MatchAdapterBitmask(const std::wstring& description);
std::uint32_t MatchAdapterBitmask(const std::wstring& description,
                                  std::span<const AdapterPattern> patterns);
