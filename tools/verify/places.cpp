#include "verify/places.h"

#include "config/path_resolvers.h"
#include "config/service_parameters.h"
#include "config/settings_tables.h"
#include "fs/path_helpers.h"
#include "registry/registry_setting.h"

#include <algorithm>

namespace verify {

namespace {

bool IsDeleted(const PathResolver& resolver) {
    return std::ranges::any_of(DeleteList, [&](const RegistrySetting& setting) {
        return setting.keyPath == ServiceParametersKey &&
               setting.valueName == resolver.directoryName;
    });
}

}  // namespace

Place PlaceAt(const std::wstring& path) {
    Place place = {.path = ExpandEnvironmentPath(path)};
    if (!place.path.empty()) {
        place.attributes = ::GetFileAttributesW(place.path.c_str());
        place.error = ::GetLastError();
    }
    return place;
}

Place PlaceOf(const std::wstring& name,
              const std::function<std::wstring(const std::wstring&)>& resolve) {
    if (!resolve) {
        return PlaceAt(name);
    }
    const auto* const resolver = resolve.target<PathResolver>();
    if (resolver != nullptr && IsDeleted(*resolver)) {
        return PlaceAt(resolver->InDirectory(resolver->defaultDirectory, name));
    }
    return PlaceAt(resolve(name));
}

Finding NotThere(const Place& place) {
    if (place.path.empty()) {
        return CannotTell(L"its path cannot be expanded");
    }
    if (place.error == ERROR_FILE_NOT_FOUND || place.error == ERROR_PATH_NOT_FOUND) {
        return Found(/*asExpected=*/false, L"absent");
    }
    return CannotTell(place.error);
}

}  // namespace verify
