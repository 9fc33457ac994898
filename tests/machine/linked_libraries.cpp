#include "machine/linked_libraries.h"

#include <windows.h>

namespace test {

std::vector<std::string> LinkedLibraries(const std::filesystem::path& file) {
    const HMODULE module = ::LoadLibraryExW(file.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    if (module == nullptr) {
        return {};
    }
    const auto* base = reinterpret_cast<const BYTE*>(module);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    std::vector<std::string> names;
    const auto* library =
        reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
    for (; imports.VirtualAddress != 0 && library->Name != 0; ++library) {
        names.emplace_back(reinterpret_cast<const char*>(base + library->Name));
    }
    ::FreeLibrary(module);
    return names;
}

}  // namespace test
