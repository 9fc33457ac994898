#include "support/temporary_directory.h"

#include "support/file_contents.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace test {

TemporaryDirectory::TemporaryDirectory() {
    static int number = 0;
    path_ = std::filesystem::temp_directory_path() /
            (L"FinasetTests-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
             std::to_wstring(++number));
    if (!std::filesystem::create_directory(path_)) {
        throw std::runtime_error("a temporary directory is there already");
    }
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
