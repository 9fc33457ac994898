// Says whether this machine is in the state that the tables of Finaset ask for.

#include "verify/verify.h"

int wmain(int argumentCount, wchar_t* arguments[]) {
    return verify::RunVerify(argumentCount, arguments);
}
