#pragma once

// The minimum of a run: the platform calls that the program makes on a machine on which none of
// them fails, with the same arguments in the same order, and next to nothing between them. It takes
// the program's command line, writes no log, and is the measure for the program's speed and number
// of calls. Returns 0, or 1 if a call failed without which it cannot go on, for example on a
// machine without the product; standard error says which.
int RunBare(int argumentCount, const wchar_t* const* arguments);
