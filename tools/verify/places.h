#pragma once

#include "verify/row.h"

#include <windows.h>

#include <functional>
#include <string>

namespace verify {

// The file or directory that a table row refers to.
struct Place {
    std::wstring path;  // expanded; empty if that fails
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    DWORD error = ERROR_SUCCESS;  // why there are no attributes

    [[nodiscard]] bool Exists() const { return attributes != INVALID_FILE_ATTRIBUTES; }
    // Of a place that exists.
    [[nodiscard]] bool IsDirectory() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

Place PlaceAt(const std::wstring& path);

// The place that a run makes of a name and a resolver, if any. Ignores values that the delete list
// names: they are gone by the time a run resolves a path.
Place PlaceOf(const std::wstring& name,
              const std::function<std::wstring(const std::wstring&)>& resolve);

// The finding for a place that does not exist.
Finding NotThere(const Place& place);

}  // namespace verify
