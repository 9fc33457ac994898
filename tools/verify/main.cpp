// Says whether this machine is in the state that Finaset's tables require.

#include "verify/verify.h"

int wmain(int argumentCount, wchar_t* arguments[]) {
    return verify::RunVerify(argumentCount, arguments);
}
