#include "support/fake_processes.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <initializer_list>

namespace test {

namespace {

std::string Text(const STARTUPINFOW& startup) {
    const auto* bytes = reinterpret_cast<const char*>(&startup);
    return std::all_of(bytes, bytes + sizeof(startup), [](char byte) { return byte == 0; })
               ? "startup all zero"
               : "startup set";
}

}  // namespace

HANDLE FakeProcesses::Hand(const std::string& name) {
    // Far from any handle that the platform returns.
    const auto handle = reinterpret_cast<HANDLE>(0x7000'0000 + 4 * (++handed_));
    open_[handle] = name;
    return handle;
}

std::string FakeProcesses::Name(HANDLE handle) const {
    if (handle == ::GetCurrentProcess()) {
        return "own process";
    }
    const auto entry = open_.find(handle);
    return entry == open_.end() ? "unknown handle" : entry->second;
}

BOOL FakeProcesses::Launch(const char* function, const std::string& token, LPCWSTR application,
                           LPWSTR commandLine, std::initializer_list<const void*> nulls,
                           BOOL inherit, DWORD flags, const STARTUPINFOW& startup,
                           PROCESS_INFORMATION& info) {
    const bool allNull = std::ranges::all_of(nulls, [](const void* pointer) { return !pointer; });
    calls.Add(function, token, application, std::wstring(commandLine), inherit, flags,
              allNull ? "all null" : "not all null", Text(startup));
    *commandLine = L'\0';  // the platform may write to it
    if (launches) {
        info = {.hProcess = Hand("new process"),
                .hThread = Hand("new thread"),
                .dwProcessId = 1234,
                .dwThreadId = 1235};
    }
    return launches;
}

FakeProcesses::FakeProcesses()
    : enumerate_([this](DWORD* ids, DWORD bytes, DWORD* bytesReturned) -> BOOL {
          calls.Add("K32EnumProcesses", bytes);
          if (!enumerates) {
              return FALSE;
          }
          for (const FakeProcess& process : running) {
              *ids++ = process.id;
          }
          *bytesReturned = static_cast<DWORD>(running.size() * sizeof(DWORD)) + excessBytes;
          return TRUE;
      }),
      openProcess_([this](DWORD access, BOOL inherit, DWORD id) -> HANDLE {
          calls.Add("OpenProcess", access, inherit, id);
          const auto process =
              std::ranges::find_if(running, [id](const auto& each) { return each.id == id; });
          return process != running.end() && process->opens ? Hand("process " + std::to_string(id))
                                                            : nullptr;
      }),
      imagePath_([this](HANDLE handle, DWORD flags, LPWSTR buffer, DWORD* size) -> BOOL {
          const std::string name = Name(handle);
          calls.Add("QueryFullProcessImageNameW", name, flags, *size);
          std::wstring path = ownPath;
          for (const FakeProcess& process : running) {
              path = name == "process " + std::to_string(process.id) ? process.path : path;
          }
          // The output of a failed call must not be used.
          const std::wstring text = path.empty() ? L"C:\\left behind.exe" : path;
          *size = static_cast<DWORD>(text.copy(buffer, *size - 1));
          buffer[*size] = L'\0';
          return !path.empty();
      }),
      openToken_([this](HANDLE process, DWORD access, PHANDLE token) -> BOOL {
          calls.Add("OpenProcessToken", Name(process), access);
          // A refused call may leave anything.
          *token = !givesToken ? INVALID_HANDLE_VALUE : tokenIsNull ? nullptr : Hand("token");
          return givesToken;
      }),
      create_([this](LPCWSTR application, LPWSTR commandLine, auto* processSecurity,
                     auto* threadSecurity, BOOL inherit, DWORD flags, LPVOID environment,
                     LPCWSTR directory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) {
          return Launch("CreateProcessW", "no token", application, commandLine,
                        {processSecurity, threadSecurity, environment, directory}, inherit, flags,
                        *startup, *info);
      }),
      createAsUser_([this](HANDLE token, LPCWSTR application, LPWSTR commandLine,
                           auto* processSecurity, auto* threadSecurity, BOOL inherit, DWORD flags,
                           LPVOID environment, LPCWSTR directory, LPSTARTUPINFOW startup,
                           LPPROCESS_INFORMATION info) {
          return Launch("CreateProcessAsUserW", Name(token), application, commandLine,
                        {processSecurity, threadSecurity, environment, directory}, inherit, flags,
                        *startup, *info);
      }),
      wait_([this](HANDLE handle, DWORD milliseconds) {
          if (!open_.contains(handle)) {
              return wait_.Forward(handle, milliseconds);  // the thread library's own waits
          }
          calls.Add("WaitForSingleObject", Name(handle), milliseconds);
          return waitResult;
      }),
      terminate_([this](HANDLE process, UINT code) -> BOOL {
          calls.Add("TerminateProcess", Name(process), code);
          return TRUE;
      }),
      close_([this](HANDLE handle) -> BOOL {
          if (!open_.contains(handle)) {
              return close_.Forward(handle);
          }
          calls.Add("CloseHandle", Name(handle));
          open_.erase(handle);
          return TRUE;
      }) {}

FakeProcesses::~FakeProcesses() {
    EXPECT_TRUE(AllClosed()) << "never closed: " << open_.begin()->second;
}

}  // namespace test
