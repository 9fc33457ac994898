#pragma once

#include <windows.h>

#include <string>
#include <vector>

// Paths may hold environment variables in the form %name%. Every function but JoinPath and
// PathLevels expands its argument, expanded already or not. None throws when the platform fails.

// The path with its variables expanded, or empty if that fails or the path is empty. Uses a buffer
// of 2048 characters: for a longer result, returns what the platform leaves in it.
std::wstring ExpandEnvironmentPath(const std::wstring& path);

// The file attributes, or INVALID_FILE_ATTRIBUTES if there is no such path.
DWORD GetPathAttributes(const std::wstring& path);

bool PathExists(const std::wstring& path);

// Drive and directory of the path, with the trailing backslash, or empty if it cannot be split.
std::wstring ParentDirectoryOf(const std::wstring& path);

// The levels of an expanded path, from its first component to the whole: C:, C:\a, C:\a\b. Every
// backslash separates two components, except one at the end.
std::vector<std::wstring> PathLevels(const std::wstring& path);

// Creates every missing level of a directory. Returns the result of the last creation, so false if
// there was nothing to create.
bool CreateDirectoryPath(const std::wstring& path);

// The directory, a backslash unless it is empty or ends with one, and the name.
std::wstring JoinPath(const std::wstring& directory, const std::wstring& name);
