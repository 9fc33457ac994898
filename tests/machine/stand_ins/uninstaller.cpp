// The uninstall program: records its command line.

#include "stand_in.h"

#include <windows.h>

int wmain() {
    stand_in::RecordStart();
    return 0;
}
