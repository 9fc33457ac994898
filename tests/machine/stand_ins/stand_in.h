#pragma once

#include <windows.h>

#include <string>

// What the stand-ins for the product's programs share.

namespace stand_in {

// What follows the program's name on the command line, unchanged.
inline std::wstring RestOfCommandLine() {
    const wchar_t* line = ::GetCommandLineW();
    const wchar_t end = *line == L'"' ? *line++ : L' ';
    while (*line != L'\0' && *line != end) {
        ++line;
    }
    if (*line == L'"') {
        ++line;
    }
    return *line == L'\0' ? L"" : line + 1;
}

// The event that says that a stand-in is ready: it has its window, or has recorded its start. The
// first user creates it; it exists while any of them keeps its handle.
inline HANDLE ReadyEvent(DWORD processId) {
    const std::wstring name = L"StandInReady." + std::to_wstring(processId);
    return ::CreateEventW(nullptr, TRUE, FALSE, name.c_str());
}

inline void SayReady() {
    ::SetEvent(ReadyEvent(::GetCurrentProcessId()));  // and keep the handle
}

// Appends the text in UTF-8, and a line end, to a file.
inline void AppendLine(const std::wstring& path, const std::wstring& text) {
    const std::wstring line = text + L"\r\n";
    char bytes[4096];
    const int length = ::WideCharToMultiByte(CP_UTF8, 0, line.data(), static_cast<int>(line.size()),
                                             bytes, sizeof(bytes), nullptr, nullptr);
    const HANDLE file =
        ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    ::WriteFile(file, bytes, static_cast<DWORD>(length), &written, nullptr);
    ::CloseHandle(file);
}

// Appends the command line to the file named like the program with ".started" appended.
inline void RecordStart() {
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    AppendLine(std::wstring(path) + L".started", ::GetCommandLineW());
    SayReady();
}

}  // namespace stand_in
