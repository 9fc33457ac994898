#include "bare.h"

int wmain(int argumentCount, wchar_t* arguments[]) {
    return RunBare(argumentCount, arguments);
}
