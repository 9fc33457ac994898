#pragma once

#include "verify/row.h"

#include <windows.h>

#include <functional>
#include <string>

namespace verify {

// A file or a directory that a row of a table leads to.
struct Place {
    std::wstring path;  // expanded; empty if that cannot be done
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    DWORD error = ERROR_SUCCESS;  // why there are no attributes

    [[nodiscard]] bool Exists() const { return attributes != INVALID_FILE_ATTRIBUTES; }
    [[nodiscard]] bool IsDirectory() const {
        return Exists() && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    }
};

Place PlaceAt(const std::wstring& path);

// The place that a run makes of a name and a resolver, if there is one. A value that the delete
// list names is not asked: it is gone by the time when a run resolves a path.
Place PlaceOf(const std::wstring& name,
              const std::function<std::wstring(const std::wstring&)>& resolve);

// What is to be said of a place that does not exist.
Finding NotThere(const Place& place);

}  // namespace verify
