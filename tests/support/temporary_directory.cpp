#include "support/temporary_directory.h"

#include "support/file_contents.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace test {

namespace {

// Of the user's temporary directory, Windows may give the short name ("C:\\Users\\RUNNER~1").
std::filesystem::path LongPath(const std::filesystem::path& path) {
    std::wstring longPath(::GetLongPathNameW(path.c_str(), nullptr, 0), L'\0');
    longPath.resize(
        ::GetLongPathNameW(path.c_str(), longPath.data(), static_cast<DWORD>(longPath.size())));
    return longPath;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
    static int number = 0;
    path_ = LongPath(std::filesystem::temp_directory_path()) /
            (L"FinasetTests-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
             std::to_wstring(++number));
    if (!std::filesystem::create_directory(path_)) {
        throw std::runtime_error("a temporary directory is there already");
    }
    MakePlainDirectory(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void MakeFile(const std::wstring& path) {
    if (!std::ofstream(std::filesystem::path(path))) {
        throw std::runtime_error("a file cannot be made");
    }
    WaitUntilFree(path);
}

}  // namespace test
