// Starts a search of a directory, as "search PATTERN", and nothing more: the memory for it.

#include <windows.h>

int wmain(int argumentCount, wchar_t* arguments[]) {
    WIN32_FIND_DATAW entry = {};
    return argumentCount == 2 && ::FindFirstFileW(arguments[1], &entry) != INVALID_HANDLE_VALUE ? 0
                                                                                                : 1;
}
