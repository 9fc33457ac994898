// A program that records its command line and then runs until it is terminated: the companion, or a
// helper that hangs.

#include "stand_in.h"

#include <windows.h>

int wmain() {
    stand_in::RecordStart();
    ::Sleep(INFINITE);
    return 0;
}
