#pragma once

#include "fs/directory_security.h"
#include "verify/row.h"

#include <span>

namespace verify {

// Whether each directory is there and secure: no link on the way to it nor among its entries, the
// table's access list, and below it nothing but what is inherited. Links are not followed, and what
// has a row of its own is left to that.
Rows CheckDirectories(std::span<const SecuredDirectory> directories);

}  // namespace verify
