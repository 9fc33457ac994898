#pragma once

#include "fs/directory_security.h"

#include <windows.h>

#include <span>
#include <string>
#include <vector>

namespace verify {

// In what the access list of a directory, in its security descriptor, grants otherwise than these
// entries as a protected list would; nothing if it does not. Compared by effect: a generic right is
// the rights of a file that it stands for, and one entry is as good as one for the directory and
// one that is only inherited.
std::vector<std::wstring> Deviations(PSECURITY_DESCRIPTOR descriptor,
                                     std::span<const AceSpec> entries);

// Whether a file or directory has anything but what it inherits.
bool HasItsOwn(PSECURITY_DESCRIPTOR descriptor);

// The access list in the platform's notation.
std::wstring Notation(PSECURITY_DESCRIPTOR descriptor);
std::wstring Notation(std::span<const AceSpec> entries);

}  // namespace verify
