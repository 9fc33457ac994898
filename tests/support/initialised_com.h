#pragma once

#include <windows.h>

#include <objbase.h>

namespace test {

// COM while it lives, as the program has it for a whole run.
class InitialisedCom {
public:
    InitialisedCom() { ::CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
    InitialisedCom(const InitialisedCom&) = delete;
    InitialisedCom& operator=(const InitialisedCom&) = delete;
    ~InitialisedCom() { ::CoUninitialize(); }
};

}  // namespace test
