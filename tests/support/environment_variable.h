#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <utility>

namespace test {

// Changes the value of an environment variable while it lives.
class EnvironmentVariable {
public:
    EnvironmentVariable(std::wstring name, const std::wstring& value) : name_(std::move(name)) {
        wchar_t before[4096] = {};
        if (::GetEnvironmentVariableW(name_.c_str(), before, 4096) != 0) {
            before_ = before;
        }
        ::SetEnvironmentVariableW(name_.c_str(), value.c_str());
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() {
        ::SetEnvironmentVariableW(name_.c_str(), before_ ? before_->c_str() : nullptr);
    }

private:
    std::wstring name_;
    std::optional<std::wstring> before_;
};

}  // namespace test
