#pragma once

#include <functional>
#include <span>
#include <string>

// One file to copy.
struct FileOperation {
    bool overwrite;  // delete and replace an existing destination; otherwise keep it
    std::wstring fileName;
    std::function<std::wstring(const std::wstring&)> resolveDestination;  // from the name; or none
    std::wstring sourcePath;  // with unexpanded variables
};

// Copies each file of the table (by default the product's) to its destination, creating the
// directory, and logs each step. A failure does not stop the later steps and rows.
void RunFileOperations();
void RunFileOperations(std::span<const FileOperation> operations);

// Copies a file. Returns whether it did; false, with nothing changed, if the destination exists and
// may not be overwritten.
bool CopyOneFile(const std::wstring& source, const std::wstring& destination, bool overwrite);
