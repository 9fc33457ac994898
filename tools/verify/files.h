#pragma once

#include "fs/file_operations.h"
#include "verify/row.h"

#include <span>

namespace verify {

// Whether each file is at its destination: a replaced one with the same content as the shipped one,
// byte for byte, a kept one with any.
Rows CheckFiles(std::span<const FileOperation> operations);

}  // namespace verify
