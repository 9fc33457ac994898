#include "fs/file_table.h"

#include "config/path_resolvers.h"
#include "config/service_parameters.h"

#include <string>

namespace {

FileOperation ConfigurationFile(const wchar_t* name, bool overwrite) {
    return {overwrite, name, ConfigurationFilesResolver,
            std::wstring(DriverDirectory) + L"\\" + name};
}

}  // namespace

const std::vector<FileOperation> FileTable = {
    ConfigurationFile(L"user.xml", false),
    ConfigurationFile(L"oem.xml", true),
    ConfigurationFile(L"vx.stg", true),
};
