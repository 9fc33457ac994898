#pragma once

#include <windows.h>

namespace test {

// Whether this Windows is Wine. For what that cannot show, see tests/machine/wine_limits_test.cpp.
inline bool OnWine() {
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace test
