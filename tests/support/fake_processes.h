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

// A process on the faked machine.
struct FakeProcess {
    DWORD id = 0;
    std::wstring path;  // none if empty
    bool opens = true;
};

// Replaces the machine's processes: answers as configured and records each call with its arguments.
// Handles that it did not return are really closed. A test fails if it leaves one of its handles
// open.
class FakeProcesses {
public:
    std::wstring ownPath = L"C:\\Own Directory\\Finaset.exe";
    std::vector<FakeProcess> running;
    bool enumerates = true;
    DWORD excessBytes = 0;  // reported in addition to the running processes
    bool givesToken = true;
    bool tokenIsNull = false;
    bool launches = true;
    DWORD waitResult = WAIT_OBJECT_0;

    CallLog calls;

    // Whether every handle that was returned is closed.
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
