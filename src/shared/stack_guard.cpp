// What GCC's stack protector asks for. The compiler's own library would load a provider of
// cryptography at each start, and whatever DLLs that needs, to fill one word.

#include <windows.h>

#include <bit>
#include <cstdint>
#include <initializer_list>

// NOLINTBEGIN(bugprone-reserved-identifier,cppcoreguidelines-avoid-non-const-global-variables): the
// compiler chooses these names
extern "C" {

// What each function that has a buffer puts behind it, and compares before it returns.
std::uintptr_t __stack_chk_guard;

// Ends the program at once, in the platform's own way (a fast fail): after an overrun nothing on
// the stack is to be trusted.
[[noreturn]] void __stack_chk_fail() {
    asm volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
    __builtin_unreachable();
}
}
// NOLINTEND(bugprone-reserved-identifier,cppcoreguidelines-avoid-non-const-global-variables)

namespace {

// Fills the guard before every other constructor runs, from what nobody can know who prepares the
// input of a run: the time to the tick of the processor, the numbers of the process and the thread,
// and where the system put the stack. Its lowest byte is zero, so that no text carries the whole.
__attribute__((constructor(101), no_stack_protector)) void FillStackGuard() {
    FILETIME time = {};
    ::GetSystemTimeAsFileTime(&time);
    LARGE_INTEGER counter = {};
    ::QueryPerformanceCounter(&counter);
    auto guard = reinterpret_cast<std::uintptr_t>(&counter);
    for (const std::uint64_t each :
         {std::uint64_t{time.dwLowDateTime}, std::uint64_t{time.dwHighDateTime},
          static_cast<std::uint64_t>(counter.QuadPart), std::uint64_t{::GetCurrentProcessId()},
          std::uint64_t{::GetCurrentThreadId()}}) {
        constexpr int Spread = 13;  // what differs from run to run meets other bits each time
        guard = std::rotl(guard, Spread) ^ each;
    }
    constexpr std::uintptr_t LowestByte = 0xFF;
    __stack_chk_guard = guard & ~LowestByte;
}

}  // namespace
