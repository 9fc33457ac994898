#pragma once

#include "support/import_hook.h"

#include <windows.h>

#include <map>
#include <string>

namespace test {

// Replaces the access control lists of files when they are read; Wine invents them. Files that this
// is not given have only inherited entries.
class AccessLists {
public:
    std::map<std::wstring, std::wstring> lists;  // by path, in the platform's notation
    std::map<std::wstring, DWORD> openErrors;    // by path; the error of opening it
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
