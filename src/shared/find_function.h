#pragma once

#include <windows.h>

namespace Utils {

// A function looked up at run time, or null; the module may be null too.
template <typename Function>
Function* FindFunction(HMODULE module, const char* name) {
    return module == nullptr ? nullptr
                             : reinterpret_cast<Function*>(
                                   reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace Utils
