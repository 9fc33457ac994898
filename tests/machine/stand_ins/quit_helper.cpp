// The helper: posts a quit request to the window whose title is the rest of its command line.
// Records its command line.

#include "stand_in.h"

#include <windows.h>

int wmain() {
    stand_in::RecordStart();
    const HWND window = ::FindWindowW(nullptr, stand_in::RestOfCommandLine().c_str());
    return window != nullptr && ::PostMessageW(window, WM_CLOSE, 0, 0) ? 0 : 1;
}
