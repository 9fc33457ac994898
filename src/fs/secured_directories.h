#pragma once

#include "fs/directory_security.h"

#include <vector>

// The product's data directories, in the order in which they are secured. Ordinary users have
// access to the image cache alone, and only to read and run.
extern const std::vector<SecuredDirectory> SecuredDirectoryTable;
