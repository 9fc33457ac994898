#include "support/temporary_directory.h"

#include "support/file_contents.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace test {

namespace {

// The user's temporary directory, of which Windows may give the short name
// ("C:\\Users\\RUNNER~1"); or the system's, if the user's name has letters that a log cannot show.
std::filesystem::path PlaceForAll() {
    const std::filesystem::path path = std::filesystem::temp_directory_path();
    std::wstring longPath(::GetLongPathNameW(path.c_str(), nullptr, 0), L'\0');
    longPath.resize(
        ::GetLongPathNameW(path.c_str(), longPath.data(), static_cast<DWORD>(longPath.size())));
    if (std::ranges::all_of(longPath, [](wchar_t character) { return character < 0x80; })) {
        return longPath;
    }
    wchar_t windows[MAX_PATH] = {};
    ::GetSystemWindowsDirectoryW(windows, MAX_PATH);
    return std::filesystem::path(windows) / L"Temp";
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
    static int number = 0;
    path_ = PlaceForAll() / (L"FinasetTests-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                             std::to_wstring(++number));
    if (!std::filesystem::create_directory(path_)) {
        throw std::runtime_error("a temporary directory is there already");
    }
    MakePlainDirectory(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    RemoveAll(path_);
}

void MakeFile(const std::wstring& path) {
    if (!std::ofstream(std::filesystem::path(path))) {
        throw std::runtime_error("a file cannot be made");
    }
    WaitUntilFree(path);
}

}  // namespace test
