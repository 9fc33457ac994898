#include "driver/console_log.h"

#include <fcntl.h>
#include <io.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <memory>
#include <string_view>

namespace {

// Enough for most wide texts. It needs no memory: the text may report that there is none.
constexpr std::size_t UsualCapacity = 1024;

struct FreeMemory {
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
    void operator()(wchar_t* memory) const noexcept { std::free(memory); }
};

}  // namespace

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

    // With room for the terminating zero: some runtimes always write it.
    std::size_t capacity = static_cast<std::size_t>(length) + 1;
    wchar_t usual[UsualCapacity] = {};
    std::unique_ptr<wchar_t, FreeMemory> longer;
    if (capacity > std::size(usual)) {
        // Out of memory must not throw here: the text is cut then.
        // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
        longer.reset(static_cast<wchar_t*>(std::malloc(capacity * sizeof(wchar_t))));
        capacity = longer ? capacity : std::size(usual);
    }
    wchar_t* const text = longer ? longer.get() : usual;
    va_start(arguments, format);
    ::_vsnwprintf(text, capacity, format, arguments);
    va_end(arguments);

    // Not the runtime's own wide output: on a stream in binary mode that writes UTF-16.
    std::int32_t written = 0;
    for (const wchar_t character : std::wstring_view(text, capacity - 1)) {
        const std::int32_t one = ConsolePrint("%lc", static_cast<wint_t>(character));
        written += one == 1 ? one : ConsolePrint("?");
    }
    return written;
}

void PrintVerdict(bool success) {
    ConsolePrint("%ls\r\n", success ? L"Success" : L"Failure");
}

void PrintSectionBanner(int dashes, const char* title) {
    // As many as the longest line needs: a banner allocates no memory.
    constexpr char Line[] = "-------------------------------------------------------";
    ConsolePrint("\r\n%.*s\r\n", dashes, Line);
    ConsolePrint("%s", title);
    ConsolePrint("%.*s\r\n", dashes, Line);
}
