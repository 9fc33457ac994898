#pragma once

// What a run cannot do without: the calls of the platform that the program makes on a machine on
// which none of them fails, with the same arguments and in the same order, and next to nothing
// between them. It takes the program's command line, writes no log, and is what the program's speed
// and the number of its calls are measured by. Returns 0, or 1 if a call has failed that it cannot
// go on without, on a machine without the product for example: which, is on standard error.
int RunBare(int argumentCount, const wchar_t* const* arguments);
