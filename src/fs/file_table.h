#pragma once

#include "fs/file_operations.h"

#include <vector>

// The configuration files that ship in the driver's directory, in the order in which they are
// copied. The user's own file is kept if it exists; the others are always replaced.
extern const std::vector<FileOperation> FileTable;
