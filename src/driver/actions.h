#pragma once

#include "proc/process_entry.h"

#include <cstdint>
#include <span>

// What a run does, as a set of bits. Other bits mean nothing and are ignored.
enum ActionBits : std::uint32_t {
    ActionStop = 1,
    ActionConfigure = 4,
    ActionStart = 8,
    ActionDisable = 16,
};

// One run: takes the arguments of wmain, settles the action bits and carries out the steps in their
// order. No failure ends it early, a want of memory neither; only a configure step that could not
// secure the machine, or did not come to its end, keeps start and disable from running.
void RunActions(int argumentCount, const wchar_t* const* arguments);

// The action bits of this run: the registry's, or those of the first argument if it is an option.
// Prints the usage text (and chooses no action) for "/?". An unknown option is no option.
std::uint32_t ChooseActions(int argumentCount, const wchar_t* const* arguments);

// Print the section's banner and stop or start each entry in order, whatever becomes of the others.
void StopEntries(std::span<const ProcessEntry> entries);
void StartEntries(std::span<const ProcessEntry> entries);
