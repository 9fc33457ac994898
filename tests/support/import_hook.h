#pragma once

#include "support/guard_page_heap.h"

#include <windows.h>

#include <functional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace test {

// The slot in this program's import address table through which `function` is called, which can be
// written to from now on. Takes the address as the program sees it: the import's own, or that of
// the thunk that the linker makes for a function declared without dllimport. Throws if the program
// does not import it.
void** FindImportSlot(void* function);

template <auto Function, typename Signature = std::remove_pointer_t<decltype(Function)>>
class ImportHook;

// While it lives, every call of an imported function by this program goes to `replacement` instead.
// Hooks of one function nest, and must end in reverse order, like scopes. In a replacement, Forward
// calls what the hook replaced: the outer hook, or the platform.
//
//     ImportHook<&::Sleep> hook([&](DWORD milliseconds) { slept += milliseconds; });
template <auto Function, typename Result, typename... Arguments>
class ImportHook<Function, Result(Arguments...)> {
public:
    explicit ImportHook(std::function<Result(Arguments...)> replacement)
        : replacement_(std::move(replacement)), outer_(innermost_) {
        if (slot_ == nullptr) {
            slot_ = FindImportSlot(reinterpret_cast<void*>(Function));
        }
        if (outer_ == nullptr) {
            platform_ = reinterpret_cast<Result (*)(Arguments...)>(*slot_);
            *slot_ = reinterpret_cast<void*>(&Dispatch);
        }
        innermost_ = this;
    }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;
    ~ImportHook() {
        innermost_ = outer_;
        if (outer_ == nullptr) {
            *slot_ = reinterpret_cast<void*>(platform_);
        }
    }

    Result Forward(Arguments... arguments) {
        return outer_ != nullptr ? outer_->replacement_(arguments...) : platform_(arguments...);
    }

private:
    static Result Dispatch(Arguments... arguments) {
        const GuardPages without(false);
        return innermost_->replacement_(arguments...);
    }

    static inline ImportHook* innermost_ = nullptr;
    static inline void** slot_ = nullptr;
    static inline Result (*platform_)(Arguments...) = nullptr;

    std::function<Result(Arguments...)> replacement_;
    ImportHook* outer_;
};

// For Clang, noexcept is part of what a function of the C runtime is.
template <auto Function, typename Result, typename... Arguments>
class ImportHook<Function, Result(Arguments...) noexcept>
    : public ImportHook<Function, Result(Arguments...)> {
public:
    using ImportHook<Function, Result(Arguments...)>::ImportHook;
};

}  // namespace test
