#pragma once

#include "fs/directory_security.h"

#include <vector>

// The product's data directories, in the order in which they are secured. Ordinary users have
// access only to the image cache, and only to read and execute.
extern const std::vector<SecuredDirectory> SecuredDirectoryTable;
