#pragma once

#include <cstdarg>
#include <cstdio>

// The one place for differences between compilers. In C++, MinGW's printf family is its own and not
// the C runtime's; the runtime's function has another name there. The attribute makes GCC and Clang
// check the arguments of a format string.
#ifdef __MINGW32__
#define FINASET_FORMAT_STRING(text, arguments) __attribute__((format(printf, text, arguments)))

inline int RuntimeVPrintf(const char* format, va_list arguments) {
    return ::__ms_vprintf(format, arguments);
}
#else
#define FINASET_FORMAT_STRING(text, arguments)

inline int RuntimeVPrintf(const char* format, va_list arguments) {
    return std::vprintf(format, arguments);
}
#endif
