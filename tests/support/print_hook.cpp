#include "support/print_hook.h"

#include "support/import_hook.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

// The hooked function's format attribute does not belong in the hook's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace test {

namespace {

std::string Formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    char text[1024];
    text[0] = '\0';
    std::vsnprintf(text, sizeof(text), format, again);
    va_end(again);
    return text;
}

}  // namespace

struct PrintHook::Hook {
    std::function<void(const std::string&)> seen;
    ImportHook<&::__ms_vprintf> print{[this](const char* format, va_list arguments) {
        seen(Formatted(format, arguments));
        return print.Forward(format, arguments);
    }};
};

PrintHook::PrintHook(std::function<void(const std::string&)> seen)
    : hook_(new Hook{.seen = std::move(seen)}) {}

PrintHook::~PrintHook() = default;

}  // namespace test
