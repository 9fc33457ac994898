#pragma once

#include "machine/machine.h"
#include "support/import_hook.h"

#include <windows.h>

#include <filesystem>
#include <string>

namespace test {

// While it lives, this program takes itself for the one that says whether a machine is in order, in
// the product's directory.
class AsVerifier {
public:
    explicit AsVerifier(const Machine& machine)
        : path_(machine.ProgramDirectory() / L"finaset-verify.exe") {}

private:
    std::wstring path_;
    ImportHook<&::QueryFullProcessImageNameW> imagePath_{
        [this](HANDLE process, DWORD flags, LPWSTR buffer, DWORD* size) -> BOOL {
            if (process != ::GetCurrentProcess()) {
                return imagePath_.Forward(process, flags, buffer, size);
            }
            *size = static_cast<DWORD>(path_.copy(buffer, *size - 1));
            buffer[*size] = L'\0';
            return TRUE;
        }};
};

}  // namespace test
