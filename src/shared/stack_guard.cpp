// What GCC's stack protector requires. To fill one word, the compiler's own library would load a
// cryptographic provider, and any DLLs that it needs, at each start.

#include <windows.h>

#include <bit>
#include <cstdint>
#include <initializer_list>

// NOLINTBEGIN(bugprone-reserved-identifier,cppcoreguidelines-avoid-non-const-global-variables): the
// compiler chooses these names
extern "C" {

// Each function with a buffer stores it after the buffer, and compares it before returning.
std::uintptr_t __stack_chk_guard;

// Ends the program at once with the platform's fast fail: after an overrun, nothing on the stack
// can be trusted.
[[noreturn]] void __stack_chk_fail() {
    asm volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
    __builtin_unreachable();
}
}
// NOLINTEND(bugprone-reserved-identifier,cppcoreguidelines-avoid-non-const-global-variables)

namespace {

// Fills the guard before every other constructor runs, from values that nobody who prepares input
// can know: the time, the performance counter, the process and thread IDs, and the stack's address.
// Its lowest byte is zero, so that no text can contain it.
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
        constexpr int Spread = 13;  // lets the bits that vary between runs overlap differently
        guard = std::rotl(guard, Spread) ^ each;
    }
    constexpr std::uintptr_t LowestByte = 0xFF;
    __stack_chk_guard = guard & ~LowestByte;
}

}  // namespace
