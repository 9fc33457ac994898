#pragma once

#include "hw/adapter_patterns.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Which network adapter models this machine has. 0 until the configure action sets it.
extern std::uint32_t g_hardwareBitmask;  // NOLINT(*-avoid-non-const-global-variables)

// Determines which network adapter models are present, stores the bitmask in the registry as
// `resultValueName`, and returns it. If the value `gateValueName` of the service parameters key
// exists and is not 1, it is used as the bitmask instead. Never fails: if adapters cannot be
// listed, there are none; a bitmask that cannot be stored is still returned.
std::uint32_t ComputeHardwareBitmask(const std::wstring& gateValueName,
                                     const std::wstring& resultValueName);

// The descriptions of the adapters that are present, up or down, in the platform's order. Takes the
// buffer filled by GetAdaptersAddresses, or an empty one.
std::vector<std::wstring> ListPresentAdapterDescriptions(std::span<const std::byte> adapters);

// The mask of the first pattern of the table (by default the product's) that matches the
// description, which is then logged; 0 if none matches.
std::uint32_t MatchAdapterBitmask(const std::wstring& description);
std::uint32_t MatchAdapterBitmask(const std::wstring& description,
                                  std::span<const AdapterPattern> patterns);
