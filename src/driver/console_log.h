#pragma once

#include "shared/c_runtime.h"

#include <cstdint>

// Puts standard output into binary mode, so that line ends are written unchanged: "\r\n" as two
// bytes and "\n" as one. To be called once, before the first write.
void PrepareConsole();

// Writes the formatted text to standard output through the C runtime and adds nothing: no line end,
// no prefix, no flush. "%ls" takes a wide string. Returns the number of characters written; a
// negative number if output failed or a character cannot be written in the "C" locale. How much of
// such a text is written is up to the runtime; later calls are not affected.
std::int32_t ConsolePrint(const char* format, ...) FINASET_FORMAT_STRING(1, 2);

// The same for a wide format string: "%ls" takes a wide string (null prints "(null)"), and so does
// "%s" in some runtimes. The text goes to the same stream in the same encoding; a character that
// the "C" locale cannot write becomes "?". Throws nothing: if memory for a text of more than 1,023
// characters cannot be allocated, only that many are written.
std::int32_t ConsolePrint(const wchar_t* format, ...);

// Ends the line of a file, directory or registry item: "Success" or "Failure".
void PrintVerdict(bool success);

// Opens a section of the log with its three writes: an empty line and a line of `dashes` dashes (at
// most 55), the title (with its own line end), and the line of dashes again.
void PrintSectionBanner(int dashes, const char* title);
