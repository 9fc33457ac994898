// Loads the libraries named by its arguments, wherever the system finds them first.

#include <windows.h>

int wmain(int argumentCount, wchar_t* arguments[]) {
    for (int index = 1; index < argumentCount; ++index) {
        ::LoadLibraryW(arguments[index]);
    }
    return 0;
}
