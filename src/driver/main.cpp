#include "driver/entry.h"

#ifdef __MINGW32__
// Whether the start-up code takes arguments for patterns of file names, as "/?" would be one. Its
// default is a matter of how it was built.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier,cppcoreguidelines-avoid-non-const-global-variables)
int _dowildcard = 0;
}
#endif

int wmain(int argumentCount, wchar_t* arguments[]) {
    return RunProgram(argumentCount, arguments);
}
