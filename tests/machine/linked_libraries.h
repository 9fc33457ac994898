#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace test {

// The DLLs that a program or a DLL is linked with, by the names in its file; none if it cannot be
// read.
std::vector<std::string> LinkedLibraries(const std::filesystem::path& file);

}  // namespace test
