// The product's application: a process with a top-level window, which it closes when asked to quit,
// and then ends. The window's title is the rest of the command line, or the product's.

#include "stand_in.h"

#include <windows.h>

namespace {

LRESULT CALLBACK HandleMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
    if (message == WM_DESTROY) {
        ::PostQuitMessage(0);
        return 0;
    }
    return ::DefWindowProcW(window, message, first, second);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previous*/, LPWSTR /*commandLine*/,
                    int /*show*/) {
    const std::wstring rest = stand_in::RestOfCommandLine();
    const std::wstring title = rest.empty() ? L"Tarsel\u00AE Lumetra" : rest;

    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = &HandleMessage;
    windowClass.hInstance = instance;
    windowClass.lpszClassName = L"ApplicationStandIn";
    ::RegisterClassW(&windowClass);
    ::CreateWindowExW(0, windowClass.lpszClassName, title.c_str(), WS_OVERLAPPEDWINDOW, 0, 0, 100,
                      100, nullptr, nullptr, instance, nullptr);

    stand_in::SayReady();

    MSG message = {};
    while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
        ::DispatchMessageW(&message);
    }
    return 0;
}
