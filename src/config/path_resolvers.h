#pragma once

#include "config/service_parameters.h"

#include <string>

// Turns a file or sub-path name into a full path: the directory named by a value of the service
// parameters key, or its default if that cannot be read; a backslash; the name; then all
// environment variables expanded. Empty if the expansion fails. A directory that already ends in a
// backslash gets another one on purpose.
struct PathResolver {
    const wchar_t* directoryName;
    const wchar_t* defaultDirectory;
    bool separatorBeforeEmptyName;  // whether an empty name leaves the directory with a backslash

    std::wstring operator()(const std::wstring& name) const;

    // The same for this directory, whatever the value says.
    [[nodiscard]] std::wstring InDirectory(std::wstring directory, const std::wstring& name) const;
};

inline constexpr PathResolver ConfigurationFilesResolver = {
    ConfigurationFilesDirectoryName, ConfigurationFilesDefaultDirectory, true};
inline constexpr PathResolver ImageCacheResolver = {ImageCacheDirectoryName,
                                                    ImageCacheDefaultDirectory, false};
inline constexpr PathResolver ActivityLogResolver = {ActivityLogDirectoryName,
                                                     ActivityLogDefaultDirectory, true};
