// A library that leaves a mark when it is loaded: an empty file beside it, named like it with
// ".loaded" appended.

#include <windows.h>

#include <string>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        wchar_t path[MAX_PATH] = {};
        ::GetModuleFileNameW(library, path, MAX_PATH);
        const std::wstring mark = std::wstring(path) + L".loaded";
        ::CloseHandle(::CreateFileW(mark.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    return TRUE;
}
