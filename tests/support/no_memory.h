#pragma once

#include "support/failing_allocation.h"
#include "support/import_hook.h"

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include <cstddef>
#include <cstdlib>
#include <optional>

// The hooked function's attributes do not belong in the hook's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace test {

// While it lives, there is no memory left, from the start or from some COM string on: for the
// program, in its C runtime's heap, and for the platform functions that allocate.
class NoMemory {
public:
    NoMemory() { RunOut(); }

    // From the string on that follows so many others.
    explicit NoMemory(int strings) : strings_(strings) {}

    // Whether that point was reached.
    [[nodiscard]] bool Out() const { return program_.has_value(); }

private:
    void RunOut() { program_.emplace(0, /*andAllAfter=*/true); }

    int strings_ = 0;
    std::optional<FailingAllocation> program_;
    ImportHook<&::SysAllocString> string_{[this](const OLECHAR* text) -> BSTR {
        if (!Out() && strings_-- == 0) {
            RunOut();
        }
        return Out() ? nullptr : string_.Forward(text);
    }};
    ImportHook<&::FormatMessageW> message_{[this](auto... arguments) -> DWORD {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return Out() ? 0 : message_.Forward(arguments...);
    }};
    ImportHook<&::CoCreateInstance> object_{
        [this](REFCLSID classId, IUnknown* outer, DWORD context, REFIID iid, void** object) {
            return Out() ? E_OUTOFMEMORY : object_.Forward(classId, outer, context, iid, object);
        }};
    ImportHook<&::malloc> block_{
        [this](std::size_t size) -> void* { return Out() ? nullptr : block_.Forward(size); }};
    ImportHook<&::calloc> blocks_{[this](std::size_t count, std::size_t size) -> void* {
        return Out() ? nullptr : blocks_.Forward(count, size);
    }};
    ImportHook<&::realloc> larger_{[this](void* block, std::size_t size) -> void* {
        return Out() ? nullptr : larger_.Forward(block, size);
    }};
};

}  // namespace test
