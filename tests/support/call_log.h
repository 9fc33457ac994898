#pragma once

#include "support/import_hook.h"

#include <windows.h>

#include <concepts>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace test {

// A wide text in narrow form: characters beyond Latin-1 become "?".
std::string Narrow(std::wstring_view text);

// Platform calls are compared as texts, one per call. (Mock functions would work too, but cost the
// linker half a minute: they consist of thousands of sections.)
using Calls = std::vector<std::string>;

// Stands for a pointer that is not null and whose place does not matter.
struct SomePointer {};
inline constexpr SomePointer Some;

// One argument: numbers in decimal, texts as they are, handles by their value.
std::string Shown(const wchar_t* text);
std::string Shown(const char* text);
std::string ShownHandle(const void* handle);

inline std::string Shown(std::integral auto number) {
    return std::to_string(number);
}

inline std::string Shown(std::nullptr_t) {
    return "null";
}

inline std::string Shown(SomePointer) {
    return "some";
}

inline std::string Shown(const std::wstring& text) {
    return Shown(text.c_str());
}

inline std::string Shown(const std::string& text) {
    return text;
}

inline std::string Shown(HANDLE handle) {
    return ShownHandle(handle);
}

inline std::string Shown(HKEY handle) {
    return ShownHandle(handle);
}

// Any other pointer is to something that the platform fills.
template <typename Target>
std::string Shown(Target* pointer) {
    return pointer == nullptr ? Shown(nullptr) : Shown(Some);
}

// A call with these arguments.
template <typename... Arguments>
std::string Call(const Arguments&... arguments) {
    std::string text;
    std::string separator;
    ((text += std::exchange(separator, ", ") + Shown(arguments)), ...);
    return text;
}

// The calls of several functions, in order: each with its name, and the arguments in parentheses. A
// test compares all of it.
class CallLog {
public:
    template <typename... Arguments>
    void Add(std::string_view function, const Arguments&... arguments) {
        lines_.push_back(std::string(function) + "(" + Call(arguments...) + ")");
    }

    [[nodiscard]] const Calls& Lines() const { return lines_; }

    // The lines that begin with `function`.
    [[nodiscard]] Calls Of(std::string_view function) const;

private:
    Calls lines_;
};

template <auto Function, typename Signature = std::remove_pointer_t<decltype(Function)>>
class RecordedImport;

// An imported function whose calls are recorded, and forwarded to the platform or `replacement`.
template <auto Function, typename Result, typename... Arguments>
class RecordedImport<Function, Result(Arguments...)> {
public:
    RecordedImport()
        : RecordedImport([this](Arguments... arguments) { return Forward(arguments...); }) {}
    explicit RecordedImport(std::function<Result(Arguments...)> replacement)
        : replacement_(std::move(replacement)) {}

    // So far; inside a replacement, its own call is the last.
    [[nodiscard]] const Calls& Made() const { return calls_; }

    Result Forward(Arguments... arguments) { return hook_.Forward(arguments...); }

private:
    Calls calls_;
    std::function<Result(Arguments...)> replacement_;
    ImportHook<Function> hook_{[this](Arguments... arguments) {
        calls_.push_back(Call(arguments...));
        return replacement_(arguments...);
    }};
};

}  // namespace test
