#pragma once

#include <windows.h>

namespace test {

// While it lives, this process has an empty key of its own as HKEY_LOCAL_MACHINE.
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
