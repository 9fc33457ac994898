#pragma once

#include <functional>
#include <span>
#include <string>

// One file to copy.
struct FileOperation {
    bool overwrite;  // an existing destination is deleted first and replaced; otherwise it is kept
    std::wstring fileName;
    std::function<std::wstring(const std::wstring&)> resolveDestination;  // from the name; or none
    std::wstring sourcePath;  // with unexpanded variables
};

// Copies each file of the table (the product's, if none is given) to its place, creating the
// directory, and logs each step. No failure keeps the later steps and rows from being tried.
void RunFileOperations();
void RunFileOperations(std::span<const FileOperation> operations);

// Copies a file. Returns whether it did: not, with nothing changed, if the destination exists and
// is not to be overwritten.
bool CopyOneFile(const std::wstring& source, const std::wstring& destination, bool overwrite);
