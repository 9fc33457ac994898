#pragma once

#include "support/import_hook.h"

#include <windows.h>

#include <map>
#include <string>

namespace test {

// Takes the place of the access lists that files have, where they are read; Wine's are made up.
// Those that this is not told have inherited all that they hold.
class AccessLists {
public:
    std::map<std::wstring, std::wstring> lists;  // by path, in the notation of the platform
    std::map<std::wstring, DWORD> openErrors;    // by path; what opening it fails with
    std::map<std::wstring, DWORD> readErrors;

private:
    BOOL Answer(HANDLE file, void* buffer, DWORD size, DWORD* needed);

    std::map<HANDLE, std::wstring> open_;

    ImportHook<&::CreateFileW> create_;
    ImportHook<&::GetKernelObjectSecurity> read_;

public:
    AccessLists();
};

}  // namespace test
