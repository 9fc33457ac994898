#include "log_reader/find_logs.h"

#ifdef _WIN32
#include <windows.h>
#endif

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <system_error>
#include <vector>

namespace reader {

namespace {

using Name = std::filesystem::path::string_type;

enum class Type { Directory, File, Other };

struct Entry {
    Name name;
    Type type;
};

// Windows ignores case in names, and logs move between systems.
bool IsLog(const Name& name) {
    using Letter = Name::value_type;
    constexpr std::array<std::array<Letter, 2>, 4> Ending = {
        {{'.', '.'}, {'l', 'L'}, {'o', 'O'}, {'g', 'G'}}};
    return name.size() >= Ending.size() &&
           std::equal(Ending.begin(), Ending.end(), name.end() - Ending.size(),
                      [](const std::array<Letter, 2>& letters, Letter character) {
                          return character == letters[0] || character == letters[1];
                      });
}

#ifdef _WIN32

// Not every library can tell a junction from a directory.
bool IsLink(const WIN32_FIND_DATAW& found) {
    constexpr DWORD NameSurrogate = 0x20000000;  // not a file stored elsewhere or compressed
    const DWORD tag = found.dwReserved0;
    return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (tag == 0 || (tag & NameSurrogate) != 0);
}

// Adds the entries that matter. Returns whether those are all.
bool List(const std::filesystem::path& directory, std::vector<Entry>& entries) {
    WIN32_FIND_DATAW found{};
    const HANDLE search =
        ::FindFirstFileExW((directory / L"*").c_str(), FindExInfoBasic, &found,
                           FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (search == INVALID_HANDLE_VALUE) {
        return ::GetLastError() == ERROR_FILE_NOT_FOUND;
    }
    do {
        const Name name = found.cFileName;
        const bool directoryFound = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (name != L"." && name != L".." && !IsLink(found) && (directoryFound || IsLog(name))) {
            entries.push_back({name, directoryFound ? Type::Directory : Type::File});
        }
    } while (::FindNextFileW(search, &found) != FALSE);
    const bool complete = ::GetLastError() == ERROR_NO_MORE_FILES;
    ::FindClose(search);
    return complete;
}

#else

bool List(const std::filesystem::path& directory, std::vector<Entry>& entries) {
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::error_code unknown;  // an entry that is gone has no type
        const bool directoryFound = entry->is_directory(unknown);
        Name name = entry->path().filename().native();
        if ((directoryFound || IsLog(name)) && !entry->is_symlink(unknown)) {
            entries.push_back({std::move(name), directoryFound                    ? Type::Directory
                                                : entry->is_regular_file(unknown) ? Type::File
                                                                                  : Type::Other});
        }
    }
    return !error;
}

#endif

}  // namespace

void FindLogs(const std::filesystem::path& directory, const LogTaker& take,
              const ProblemTaker& complain) {
    std::vector<Entry> entries;
    if (!List(directory, entries)) {
        complain(directory, "not all that is in this directory can be listed");
    }
    std::ranges::sort(entries, {}, &Entry::name);
    for (const Entry& entry : entries) {
        const std::filesystem::path path = directory / entry.name;
        switch (entry.type) {
            case Type::Directory:
                FindLogs(path, take, complain);
                break;
            case Type::File:
                take(path);
                break;
            case Type::Other:
                complain(path, "it is not a file");
        }
    }
}

}  // namespace reader
