#pragma once

#include "fs/directory_security.h"

#include <windows.h>

#include <span>
#include <string>
#include <vector>

namespace verify {

// How what a directory's access control list (in its security descriptor) grants differs from these
// entries as a protected list; empty if it does not. Compares the effect: a generic right equals
// its file rights, and one entry equals one for the directory plus an inherit-only one.
std::vector<std::wstring> Deviations(PSECURITY_DESCRIPTOR descriptor,
                                     std::span<const AceSpec> entries);

// Whether a file or directory has anything but inherited entries.
bool HasItsOwn(PSECURITY_DESCRIPTOR descriptor);

// The list in the platform's notation.
std::wstring Notation(PSECURITY_DESCRIPTOR descriptor);
std::wstring Notation(std::span<const AceSpec> entries);

}  // namespace verify
