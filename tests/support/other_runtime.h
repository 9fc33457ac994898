#pragma once

#include "support/import_hook.h"

#include <cstdarg>
#include <cstddef>
#include <cwchar>

namespace test {

// While it lives, wide texts are formatted by a C runtime other than the platform's: MinGW's own,
// in which "%s" takes a narrow string in a wide format too, and a text always ends in a zero.
class OtherRuntime {
private:
    ImportHook<&::_vscwprintf> count_{[](const wchar_t* format, va_list arguments) {
        return ::__mingw_vsnwprintf(nullptr, 0, format, arguments);
    }};
    ImportHook<&::_vsnwprintf> format_{
        [](wchar_t* text, std::size_t capacity, const wchar_t* format, va_list arguments) {
            return ::__mingw_vsnwprintf(text, capacity, format, arguments);
        }};
};

}  // namespace test
