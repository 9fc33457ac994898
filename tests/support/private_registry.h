#pragma once

#include <windows.h>

namespace test {

// While it lives, HKEY_LOCAL_MACHINE is, for this process, an empty key of its own.
class PrivateRegistry {
public:
    PrivateRegistry();
    PrivateRegistry(const PrivateRegistry&) = delete;
    PrivateRegistry& operator=(const PrivateRegistry&) = delete;
    ~PrivateRegistry();

    // The key that stands for HKEY_LOCAL_MACHINE.
    [[nodiscard]] HKEY Root() const { return root_; }

private:
    HKEY root_ = nullptr;
};

}  // namespace test
