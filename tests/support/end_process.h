#pragma once

#include "shared/owner.h"

#include <windows.h>

namespace test {

// Terminates a process, if it exists, and waits for its end.
inline void EndProcess(DWORD id) {
    const Utils::KernelHandle process(::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
    if (process) {
        ::TerminateProcess(process.Get(), 1);
        ::WaitForSingleObject(process.Get(), INFINITE);
    }
}

}  // namespace test
