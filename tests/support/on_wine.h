#pragma once

#include <windows.h>

namespace test {

// Whether Windows is Wine here. For what it cannot show, see tests/machine/wine_limits_test.cpp.
inline bool OnWine() {
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace test
