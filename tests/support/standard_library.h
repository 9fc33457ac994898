#pragma once

#include <version>

namespace test {

// Whether the standard library is GCC's. A test that holds only for that skips itself elsewhere;
// what the program depends on holds for all libraries.
#ifdef __GLIBCXX__
constexpr bool GccsLibrary = true;
#else
constexpr bool GccsLibrary = false;
#endif

}  // namespace test
