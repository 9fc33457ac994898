#pragma once

#include <string>

namespace test {

// An empty directory of its own, removed at the end with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    // Without a backslash at its end.
    [[nodiscard]] const std::wstring& Path() const { return path_; }

    // The path of `name` in it.
    [[nodiscard]] std::wstring operator/(const std::wstring& name) const {
        return path_ + L'\\' + name;
    }

private:
    std::wstring path_;
};

// Makes a file of no content.
void MakeFile(const std::wstring& path);

}  // namespace test
