#include "driver/entry.h"

#include "driver/actions.h"
#include "driver/console_log.h"

#include <windows.h>

#include <objbase.h>

int RunProgram(int argumentCount, const wchar_t* const* arguments) {
    PrepareConsole();
    const HRESULT initialised = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    RunActions(argumentCount, arguments);
    if (SUCCEEDED(initialised)) {
        ::CoUninitialize();
    }
    return 0;
}
