#include "config/path_resolvers.h"

#include "fs/path_helpers.h"
#include "registry/registry_setting.h"

#include <utility>

std::wstring PathResolver::operator()(const std::wstring& name) const {
    std::wstring path = defaultDirectory;
    if (GetStringSetting(HKEY_LOCAL_MACHINE, ServiceParametersKey, directoryName, path) !=
        ERROR_SUCCESS) {
        path = defaultDirectory;
    }
    return InDirectory(std::move(path), name);
}

std::wstring PathResolver::InDirectory(std::wstring directory, const std::wstring& name) const {
    if (separatorBeforeEmptyName || !name.empty()) {
        directory += L'\\' + name;
    }
    return ExpandEnvironmentPath(directory);
}
