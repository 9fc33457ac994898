#include "driver/console_log.h"

#include <fcntl.h>
#include <io.h>

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <string>

void PrepareConsole() {
    const int descriptor = ::_fileno(stdout);
    if (descriptor >= 0) {  // negative in a process that was started without standard output
        ::_setmode(descriptor, _O_BINARY);
    }
}

std::int32_t ConsolePrint(const char* format, ...) {
    va_list arguments;  // NOLINT(cppcoreguidelines-init-variables): va_start does
    va_start(arguments, format);
    const int written = RuntimeVPrintf(format, arguments);
    va_end(arguments);
    return written;
}

std::int32_t ConsolePrint(const wchar_t* format, ...) {
    va_list arguments;  // NOLINT(cppcoreguidelines-init-variables): va_start does
    va_start(arguments, format);
    const int length = ::_vscwprintf(format, arguments);
    va_end(arguments);
    if (length < 0) {
        return length;
    }

    std::wstring text(static_cast<std::size_t>(length), L'\0');
    va_start(arguments, format);
    ::_vsnwprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);

    // Not the runtime's own wide output: on a stream in binary mode that writes UTF-16.
    std::int32_t written = 0;
    for (const wchar_t character : text) {
        const std::int32_t one = ConsolePrint("%lc", static_cast<wint_t>(character));
        written += one == 1 ? one : ConsolePrint("?");
    }
    return written;
}

void PrintVerdict(bool success) {
    ConsolePrint("%ls\r\n", success ? L"Success" : L"Failure");
}

void PrintSectionBanner(int dashes, const char* title) {
    // As many as the longest line has: a banner needs no memory.
    constexpr char Line[] = "-------------------------------------------------------";
    ConsolePrint("\r\n%.*s\r\n", dashes, Line);
    ConsolePrint("%s", title);
    ConsolePrint("%.*s\r\n", dashes, Line);
}
