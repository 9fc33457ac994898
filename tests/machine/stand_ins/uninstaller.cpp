// The uninstall program: records its command line.

#include <windows.h>

#include "stand_in.h"

int wmain() {
    stand_in::RecordStart();
    return 0;
}
