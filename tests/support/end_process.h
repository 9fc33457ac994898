#pragma once

#include "shared/owner.h"

#include <windows.h>

namespace test {

// Ends a process, if it is there, and waits until it has gone.
inline void EndProcess(DWORD id) {
    const Utils::KernelHandle process(::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
    if (process) {
        ::TerminateProcess(process.Get(), 1);
        ::WaitForSingleObject(process.Get(), INFINITE);
    }
}

}  // namespace test
