#pragma once

#include "support/call_log.h"
#include "support/import_hook.h"

#include <windows.h>

#include <psapi.h>

#include <cstddef>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace test {

// A process that runs on the faked machine.
struct FakeProcess {
    DWORD id = 0;
    std::wstring path;  // none if empty
    bool opens = true;
};

// Takes the place of what the machine knows of its processes: answers as it is set and enters each
// call, with its arguments, in a log. Handles that it did not hand out are closed for real. A test
// fails that leaves one of its handles open.
class FakeProcesses {
public:
    std::wstring ownPath = L"C:\\Own Directory\\Finaset.exe";
    std::vector<FakeProcess> running;
    bool enumerates = true;
    DWORD excessBytes = 0;  // what is reported beside the running processes
    bool givesToken = true;
    bool tokenIsNull = false;
    bool launches = true;
    DWORD waitResult = WAIT_OBJECT_0;

    CallLog calls;

    // Whether every handle that was handed out is closed again.
    [[nodiscard]] bool AllClosed() const { return open_.empty(); }

private:
    HANDLE Hand(const std::string& name);
    std::string Name(HANDLE handle) const;
    BOOL Launch(const char* function, const std::string& token, LPCWSTR application,
                LPWSTR commandLine, std::initializer_list<const void*> nulls, BOOL inherit,
                DWORD flags, const STARTUPINFOW& startup, PROCESS_INFORMATION& info);

    std::map<HANDLE, std::string> open_;
    std::size_t handed_ = 0;

    ImportHook<&::K32EnumProcesses> enumerate_;
    ImportHook<&::OpenProcess> openProcess_;
    ImportHook<&::QueryFullProcessImageNameW> imagePath_;
    ImportHook<&::OpenProcessToken> openToken_;
    ImportHook<&::CreateProcessW> create_;
    ImportHook<&::CreateProcessAsUserW> createAsUser_;
    ImportHook<&::WaitForSingleObject> wait_;
    ImportHook<&::TerminateProcess> terminate_;
    ImportHook<&::CloseHandle> close_;

public:
    FakeProcesses();
    FakeProcesses(const FakeProcesses&) = delete;
    FakeProcesses& operator=(const FakeProcesses&) = delete;
    ~FakeProcesses();
};

}  // namespace test
