#pragma once

#include "fs/file_operations.h"
#include "verify/row.h"

#include <span>

namespace verify {

// Whether each file is where it is copied to: one that is replaced with the content of the shipped
// one, byte for byte, one that is kept with any.
Rows CheckFiles(std::span<const FileOperation> operations);

}  // namespace verify
