#include "config/path_resolvers.h"

#include "fs/path_helpers.h"
#include "registry/registry_setting.h"

std::wstring PathResolver::operator()(const std::wstring& name) const {
    std::wstring path = defaultDirectory;
    if (GetStringSetting(HKEY_LOCAL_MACHINE, ServiceParametersKey, directoryName, path) !=
        ERROR_SUCCESS) {
        path = defaultDirectory;
    }
    if (separatorBeforeEmptyName || !name.empty()) {
        path += L'\\' + name;
    }
    return ExpandEnvironmentPath(path);
}
