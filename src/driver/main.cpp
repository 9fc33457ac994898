#include "driver/entry.h"

#ifdef __MINGW32__
// Whether the start-up code expands file name patterns in arguments; "/?" would be one. The default
// depends on how it was built.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier,cppcoreguidelines-avoid-non-const-global-variables)
int _dowildcard = 0;
}
#endif

int wmain(int argumentCount, wchar_t* arguments[]) {
    return RunProgram(argumentCount, arguments);
}
