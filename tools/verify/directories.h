#pragma once

#include "fs/directory_security.h"
#include "verify/row.h"

#include <span>

namespace verify {

// Whether each directory exists and is secure: no link on the way to it or among its entries, the
// table's access control list, and only inherited entries below it. Links are not followed, and
// paths with a row of their own are left to it.
Rows CheckDirectories(std::span<const SecuredDirectory> directories);

}  // namespace verify
