#include "fs/path_helpers.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cwchar>
#include <iterator>

namespace {

constexpr DWORD ExpansionCapacity = 2048;
constexpr std::size_t PathPartCapacity = 260;

}  // namespace

std::wstring ExpandEnvironmentPath(const std::wstring& path) {
    wchar_t buffer[ExpansionCapacity] = {};
    if (::ExpandEnvironmentStringsW(path.c_str(), buffer, ExpansionCapacity) == 0) {
        return {};
    }
    return {buffer,
            ::wcsnlen(buffer, std::size(buffer))};  // no zero is guaranteed if it was too long
}

DWORD GetPathAttributes(const std::wstring& path) {
    if (path.empty()) {
        return INVALID_FILE_ATTRIBUTES;
    }
    return ::GetFileAttributesW(ExpandEnvironmentPath(path).c_str());
}

bool PathExists(const std::wstring& path) {
    return GetPathAttributes(path) != INVALID_FILE_ATTRIBUTES;
}

std::wstring ParentDirectoryOf(const std::wstring& path) {
    wchar_t drive[PathPartCapacity] = {};
    wchar_t directory[PathPartCapacity] = {};
    const errno_t error =
        ::_wsplitpath_s(ExpandEnvironmentPath(path).c_str(), drive, std::size(drive), directory,
                        std::size(directory), nullptr, 0, nullptr, 0);
    if (error != 0) {
        return {};
    }
    return std::wstring(drive) + directory;
}

std::vector<std::wstring> PathLevels(const std::wstring& path) {
    std::vector<std::wstring> levels;
    std::wstring level;
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find(L'\\', start), path.size());
        if (!level.empty()) {
            level += L'\\';
        }
        level.append(path, start, end - start);
        levels.push_back(level);
        start = end + 1;
    }
    return levels;
}

bool CreateDirectoryPath(const std::wstring& path) {
    bool created = false;  // stays so for an existing directory on purpose
    for (const std::wstring& level : PathLevels(ExpandEnvironmentPath(path))) {
        if (!PathExists(level)) {
            created = ::CreateDirectoryW(level.c_str(), /*lpSecurityAttributes=*/nullptr) != FALSE;
        }
    }
    return created;
}

std::wstring JoinPath(const std::wstring& directory, const std::wstring& name) {
    std::wstring joined = directory;
    if (!directory.empty() && directory.back() != L'\\') {
        joined += L'\\';
    }
    joined += name;
    return joined;
}
