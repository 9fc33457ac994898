#include "driver/entry.h"

int wmain(int argumentCount, wchar_t* arguments[]) {
    return RunProgram(argumentCount, arguments);
}
