#include "support/registry_calls.h"

#include <cstdio>

namespace test {

namespace {

std::string Hexadecimal(unsigned long long number) {
    char text[32] = {};
    std::snprintf(text, sizeof(text), "0x%llX", number);
    return text;
}

}  // namespace

std::string Shown(unsigned long long number) {
    return Hexadecimal(number);
}

std::string Shown(const wchar_t* text) {
    if (text == nullptr) {
        return Shown(nullptr);
    }
    std::string shown = "\"";
    for (; *text != L'\0'; ++text) {
        shown += *text < 0x80 ? std::string(1, static_cast<char>(*text)) : Hexadecimal(*text);
    }
    return shown + "\"";
}

std::string Shown(const char* text) {
    return text == nullptr ? Shown(nullptr) : '"' + std::string(text) + '"';
}

std::string ShownHandle(const void* handle) {
    return handle == nullptr ? Shown(nullptr)
                             : "handle " + Hexadecimal(reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace test
