#pragma once

#include <string>

// The file name of `path` without directory and extension, at most 259 characters; environment
// variables in the path are expanded first. Empty if the path cannot be split.
std::wstring GetFileTitle(const std::wstring& path);

// Prints the usage text for the program at `programPath`.
void PrintUsage(const std::wstring& programPath);
