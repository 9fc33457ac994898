#include "support/fake_services.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>

namespace test {

namespace {

// Whether all of the pointers are null.
std::string AllNull(std::initializer_list<const void*> pointers) {
    const bool all = std::ranges::all_of(pointers, [](const void* pointer) { return !pointer; });
    return all ? "all null" : "not all null";
}

}  // namespace

SC_HANDLE FakeServices::Open(const char* kind, std::size_t& count) {
    // Far from any handle that the platform returns.
    const auto handle = reinterpret_cast<SC_HANDLE>(0x7200'0000 + 4 * (managers_ + services_));
    handles_[handle] = kind + std::to_string(++count);
    return handle;
}

BOOL FakeServices::Accept(DWORD pendingState, DWORD reachedState) {
    if (obeys && accepts) {
        states = {pendingState, reachedState};
        polls_ = 0;
    }
    return accepts;
}

std::string FakeServices::Name(SC_HANDLE handle) const {
    const auto entry = handles_.find(handle);
    return entry == handles_.end() ? "unknown handle" : entry->second;
}

std::string FakeServices::Zeroed(const SERVICE_STATUS& status) {
    const SERVICE_STATUS zero = {};
    return std::memcmp(&status, &zero, sizeof(zero)) == 0 ? "zeroed" : "not zeroed";
}

FakeServices::FakeServices()
    : connect_([this](LPCWSTR machine, LPCWSTR database, DWORD access) -> SC_HANDLE {
          calls.Add("OpenSCManagerW", machine, database, access);
          onConnect();
          return connects ? Open("manager ", managers_) : nullptr;
      }),
      open_([this](SC_HANDLE manager, LPCWSTR name, DWORD access) -> SC_HANDLE {
          calls.Add("OpenServiceW", Name(manager), name, access);
          onOpen();
          return opens ? Open("service ", services_) : nullptr;
      }),
      start_([this](SC_HANDLE service, DWORD count, LPCWSTR* arguments) -> BOOL {
          calls.Add("StartServiceW", Name(service), count, arguments);
          return Accept(SERVICE_START_PENDING, SERVICE_RUNNING);
      }),
      control_([this](SC_HANDLE service, DWORD control, SERVICE_STATUS* status) -> BOOL {
          calls.Add("ControlService", Name(service), control, Zeroed(*status));
          return Accept(SERVICE_STOP_PENDING, SERVICE_STOPPED);
      }),
      change_([this](SC_HANDLE service, DWORD type, DWORD startType, DWORD errorControl,
                     LPCWSTR path, LPCWSTR group, LPDWORD tag, LPCWSTR dependencies,
                     LPCWSTR account, LPCWSTR password, LPCWSTR displayName) -> BOOL {
          calls.Add("ChangeServiceConfigW", Name(service), type, startType, errorControl,
                    AllNull({path, group, tag, dependencies, account, password, displayName}));
          return accepts;
      }),
      query_([this](SC_HANDLE service, SERVICE_STATUS* status) -> BOOL {
          calls.Add("QueryServiceStatus", Name(service), Zeroed(*status));
          onPoll();
          const auto state = states[std::min(polls_++, states.size() - 1)];
          // Other output of a call, even a failed one, must not be used.
          std::memset(status, state ? 0xFF : 0, sizeof(*status));
          status->dwCurrentState = state.value_or(SERVICE_RUNNING);
          return state.has_value();
      }),
      close_([this](SC_HANDLE handle) -> BOOL {
          calls.Add("CloseServiceHandle", Name(handle));
          EXPECT_EQ(handles_.erase(handle), 1U) << "a handle that is not open is closed";
          return TRUE;
      }),
      sleep_([this](DWORD milliseconds) {
          calls.Add("Sleep", milliseconds);
          sleep_.Forward(milliseconds);
      }) {}

FakeServices::~FakeServices() {
    EXPECT_TRUE(AllClosed()) << "never closed: " << handles_.begin()->second;
}

}  // namespace test
