#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <vector>

namespace test {

// A wide text in narrow form: a character beyond Latin-1 becomes "?".
std::string Narrow(std::wstring_view text);

// What was called, in order, one line each: the name and, in parentheses, the arguments. A test
// compares the whole of it.
class CallLog {
public:
    template <typename... Arguments>
    void Add(std::string_view function, const Arguments&... arguments) {
        std::string list;
        ((list += (list.empty() ? "" : ", ") + Text(arguments)), ...);
        lines_.push_back(std::string(function) + "(" + list + ")");
    }

    [[nodiscard]] const std::vector<std::string>& Lines() const { return lines_; }

    // The lines that begin with `function`.
    [[nodiscard]] std::vector<std::string> Of(std::string_view function) const;

private:
    static std::string Text(std::integral auto number) { return std::to_string(number); }
    static std::string Text(const std::string& text) { return text; }
    static std::string Text(const std::wstring& text) { return Narrow(text); }

    std::vector<std::string> lines_;
};

}  // namespace test
