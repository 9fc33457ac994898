#pragma once

#include "fs/file_operations.h"

#include <vector>

// The configuration files that ship in the driver's directory, in the order in which they are
// copied. The user's own is kept when it is there, the others are always replaced.
extern const std::vector<FileOperation> FileTable;
