#include "support/import_hook.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace test {

namespace {

const std::byte* ModuleBase() {
    return reinterpret_cast<const std::byte*>(::GetModuleHandleW(nullptr));
}

template <typename Structure>
const Structure* At(std::size_t offset) {
    return reinterpret_cast<const Structure*>(ModuleBase() + offset);
}

const IMAGE_NT_HEADERS* Headers() {
    const auto offset = At<IMAGE_DOS_HEADER>(0)->e_lfanew;
    return At<IMAGE_NT_HEADERS>(static_cast<std::size_t>(offset));
}

// A function declared without dllimport is called through a thunk that jumps through its slot: the
// bytes FF 25 and the slot's distance from the next instruction.
void** SlotBehindJump(void* function) {
    constexpr std::uint8_t JumpThroughMemory[] = {0xFF, 0x25};
    constexpr std::size_t JumpLength = 6;
    auto* code = static_cast<std::byte*>(function);
    const bool inModule =
        code >= ModuleBase() && code < ModuleBase() + Headers()->OptionalHeader.SizeOfImage;
    if (!inModule || std::memcmp(code, JumpThroughMemory, sizeof(JumpThroughMemory)) != 0) {
        return nullptr;
    }
    std::int32_t distance = 0;
    std::memcpy(&distance, code + sizeof(JumpThroughMemory), sizeof(distance));
    return reinterpret_cast<void**>(code + JumpLength + distance);
}

void** SlotOf(void* function) {
    if (void** slot = SlotBehindJump(function)) {
        return slot;
    }
    const IMAGE_DATA_DIRECTORY& imports =
        Headers()->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (const auto* module = At<IMAGE_IMPORT_DESCRIPTOR>(imports.VirtualAddress);
         module->FirstThunk != 0; ++module) {
        for (auto** slot = const_cast<void**>(At<void*>(module->FirstThunk)); *slot != nullptr;
             ++slot) {
            if (*slot == function) {
                return slot;
            }
        }
    }
    throw std::logic_error("the program does not import the function that is to be hooked");
}

}  // namespace

void** FindImportSlot(void* function) {
    void** slot = SlotOf(function);
    DWORD protection = 0;
    ::VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    return slot;
}

}  // namespace test
