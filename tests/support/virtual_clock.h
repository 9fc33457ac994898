#pragma once

#include "support/import_hook.h"

#include <windows.h>

#include <functional>
#include <vector>

namespace test {

// While it lives, time advances only by what the program sleeps or waits, and that takes no time. A
// wait for something that is already signalled ends at once, as on the real clock; any other one
// runs into its timeout.
class VirtualClock {
public:
    // Milliseconds since the clock was made, and what was slept and waited for, in order.
    [[nodiscard]] ULONGLONG Now() const { return now_; }
    [[nodiscard]] const std::vector<DWORD>& Sleeps() const { return sleeps_; }
    [[nodiscard]] const std::vector<DWORD>& Waits() const { return waits_; }

    void Advance(DWORD milliseconds) { now_ += milliseconds; }

private:
    // A start time shortly before a 32-bit counter overflows.
    static constexpr ULONGLONG Epoch = 0xFFFF'F000;

    ULONGLONG now_ = 0;
    std::vector<DWORD> sleeps_;
    std::vector<DWORD> waits_;

    ImportHook<&::Sleep> sleep_{[this](DWORD milliseconds) {
        sleeps_.push_back(milliseconds);
        Advance(milliseconds);
    }};
    ImportHook<&::GetTickCount64> tickCount_{[this] { return Epoch + now_; }};
    ImportHook<&::WaitForSingleObject> wait_{[this](HANDLE handle, DWORD milliseconds) {
        if (milliseconds == INFINITE) {
            return wait_.Forward(handle, milliseconds);  // the thread library's own waits
        }
        waits_.push_back(milliseconds);
        const DWORD result = wait_.Forward(handle, 0);
        if (result == WAIT_TIMEOUT) {
            Advance(milliseconds);
        }
        return result;
    }};
};

}  // namespace test
