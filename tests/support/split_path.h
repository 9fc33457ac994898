#pragma once

#include <cstddef>
#include <cstdlib>

namespace test {

// The type of _wsplitpath_s that is imported; the others of its name are templates. To hook it:
// ImportHook<static_cast<SplitPath*>(&::_wsplitpath_s)>.
using SplitPath = errno_t(const wchar_t*, wchar_t*, std::size_t, wchar_t*, std::size_t, wchar_t*,
                          std::size_t, wchar_t*, std::size_t);

}  // namespace test
