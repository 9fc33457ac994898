#pragma once

#include <cstddef>
#include <cstdlib>

namespace test {

// The imported overload of _wsplitpath_s; the others are templates. To hook it:
// ImportHook<static_cast<SplitPath*>(&::_wsplitpath_s)>.
using SplitPath = errno_t(const wchar_t*, wchar_t*, std::size_t, wchar_t*, std::size_t, wchar_t*,
                          std::size_t, wchar_t*, std::size_t);

}  // namespace test
