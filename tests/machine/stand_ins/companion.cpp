// A program that records its command line and then runs on until it is ended: the companion, or a
// helper that hangs.

#include "stand_in.h"

#include <windows.h>

int wmain() {
    stand_in::RecordStart();
    ::Sleep(INFINITE);
    return 0;
}
