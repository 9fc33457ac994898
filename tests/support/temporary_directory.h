#pragma once

#include <string>

namespace test {

// An empty directory, deleted at the end with all its contents.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    // Without a trailing backslash.
    [[nodiscard]] const std::wstring& Path() const { return path_; }

    // The path of `name` in it.
    [[nodiscard]] std::wstring operator/(const std::wstring& name) const {
        return path_ + L'\\' + name;
    }

private:
    std::wstring path_;
};

// Creates an empty file.
void MakeFile(const std::wstring& path);

}  // namespace test
