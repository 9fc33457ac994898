#pragma once

#include "proc/process_entry.h"

#include <cstdint>
#include <span>

// What a run does, as a set of bits. Other bits are ignored.
enum ActionBits : std::uint32_t {
    ActionStop = 1,
    ActionConfigure = 4,
    ActionStart = 8,
    ActionDisable = 16,
};

// One run: takes the arguments of wmain, determines the action bits and carries out the steps in
// order. No failure ends it early, not even running out of memory; only a configure step that could
// not secure the machine, or did not finish, prevents start and disable.
void RunActions(int argumentCount, const wchar_t* const* arguments);

// The action bits of this run: the registry's, or those of the first argument if it is an option.
// For "/?", prints the usage text and chooses no action. An unknown option is ignored.
std::uint32_t ChooseActions(int argumentCount, const wchar_t* const* arguments);

// Print the section's banner and stop or start each entry in order, whether or not others fail.
void StopEntries(std::span<const ProcessEntry> entries);
void StartEntries(std::span<const ProcessEntry> entries);
