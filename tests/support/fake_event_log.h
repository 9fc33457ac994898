#pragma once

#include "support/call_log.h"
#include "support/import_hook.h"

#include <windows.h>

#include <string>

namespace test {

// Replaces the event log: answers as configured and records each call with its arguments.
class FakeEventLog {
public:
    bool registers = true;
    bool reports = true;

    CallLog calls;

private:
    // Far from any handle that the platform returns.
    static inline const auto Source = reinterpret_cast<HANDLE>(0x7100'0000);

    static std::string Name(HANDLE handle) { return handle == Source ? "source" : "other"; }

    ImportHook<&::RegisterEventSourceW> register_{[this](LPCWSTR server, LPCWSTR name) {
        calls.Add("RegisterEventSourceW", server, name);
        return registers ? Source : nullptr;
    }};
    ImportHook<&::ReportEventW> report_{[this](HANDLE log, WORD type, WORD category, DWORD id,
                                               PSID user, WORD strings, DWORD bytes, LPCWSTR* texts,
                                               LPVOID data) -> BOOL {
        calls.Add("ReportEventW", Name(log), type, category, id, user, strings, bytes,
                  strings == 0 ? L"" : texts[0], data);
        return reports;
    }};
    ImportHook<&::DeregisterEventSource> deregister_{[this](HANDLE log) -> BOOL {
        calls.Add("DeregisterEventSource", Name(log));
        return TRUE;
    }};
};

}  // namespace test
