#include "fs/file_operations.h"

#include "driver/console_log.h"
#include "fs/file_table.h"
#include "fs/path_helpers.h"

#include <windows.h>

namespace {

// A missing destination is a failure on purpose.
bool DeleteDestination(const std::wstring& destination) {
    if (!PathExists(destination)) {
        return false;
    }
    return ::DeleteFileW(ExpandEnvironmentPath(destination).c_str()) != FALSE;
}

void RunFileOperation(const FileOperation& operation) {
    const std::wstring destination = operation.resolveDestination
                                         ? operation.resolveDestination(operation.fileName)
                                         : operation.fileName;
    if (operation.overwrite) {
        ConsolePrint("Deleting File %ls \t - \t", ExpandEnvironmentPath(destination).c_str());
        PrintVerdict(DeleteDestination(destination));
    }

    const std::wstring directory = ParentDirectoryOf(destination);
    ConsolePrint("Creating Directory %ls \t - \t", ExpandEnvironmentPath(directory).c_str());
    PrintVerdict(CreateDirectoryPath(directory));

    ConsolePrint("Copying File %ls -> %ls     overwriting =%ls\t - \t",
                 ExpandEnvironmentPath(operation.sourcePath).c_str(),
                 ExpandEnvironmentPath(destination).c_str(),
                 operation.overwrite ? L"true" : L"false");
    PrintVerdict(CopyOneFile(operation.sourcePath, destination, operation.overwrite));
}

}  // namespace

void RunFileOperations() {
    RunFileOperations(FileTable);
}

void RunFileOperations(std::span<const FileOperation> operations) {
    for (const FileOperation& operation : operations) {
        RunFileOperation(operation);
    }
}

bool CopyOneFile(const std::wstring& source, const std::wstring& destination, bool overwrite) {
    if (!overwrite && PathExists(destination)) {
        return false;
    }
    return ::CopyFileW(ExpandEnvironmentPath(source).c_str(),
                       ExpandEnvironmentPath(destination).c_str(),
                       /*bFailIfExists=*/FALSE) != FALSE;
}
