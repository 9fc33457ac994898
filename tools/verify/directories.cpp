#include "verify/directories.h"

#include "fs/path_helpers.h"
#include "shared/owner.h"
#include "verify/access_list.h"
#include "verify/places.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace verify {

namespace {

constexpr std::size_t NamesShown = 3;

// Reads the security descriptor of one path after another; each is valid until the next.
class SecurityReader {
public:
    // Null if it cannot be read: the thread's last error says why. For a link, its own.
    PSECURITY_DESCRIPTOR Read(const std::wstring& path) {
        const Utils::FileHandle file(::CreateFileW(
            path.c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
            /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING,
            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, /*hTemplateFile=*/nullptr));
        if (!file) {
            return nullptr;
        }
        DWORD needed = 0;
        if (Ask(file.Get(), needed)) {
            return buffer_.data();
        }
        if (needed > Bytes()) {
            buffer_.resize((needed + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
            if (Ask(file.Get(), needed)) {
                return buffer_.data();
            }
        }
        return nullptr;
    }

private:
    [[nodiscard]] DWORD Bytes() const {
        return static_cast<DWORD>(buffer_.size() * sizeof(std::uint64_t));
    }

    bool Ask(HANDLE file, DWORD& needed) {
        return ::GetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION, buffer_.data(), Bytes(),
                                         &needed) != FALSE;
    }

    static constexpr std::size_t UsualCapacity = 64;  // most are far smaller

    std::vector<std::uint64_t> buffer_ = std::vector<std::uint64_t>(UsualCapacity);
};

// What is wrong or unknown about the entries below a directory: how many, and the names of the
// first.
struct Tally {
    std::size_t count = 0;
    std::vector<std::wstring> names;

    void Add(const std::wstring& name) {
        if (++count <= NamesShown) {
            names.push_back(name);
        }
    }

    [[nodiscard]] std::wstring Text() const {
        std::wstring text = Joined(names, L", ");
        if (count > NamesShown) {
            text += L" and " + std::to_wstring(count - NamesShown) + L" more";
        }
        return text;
    }
};

std::wstring WithoutBackslash(std::wstring path) {
    if (path.ends_with(L'\\')) {
        path.pop_back();
    }
    return path;
}

bool SamePath(const std::wstring& one, const std::wstring& other) {
    return ::CompareStringOrdinal(one.c_str(), -1, other.c_str(), -1, TRUE) == CSTR_EQUAL;
}

// Walks everything below a directory, at any depth.
class Walk {
public:
    Walk(std::wstring top, std::span<const std::wstring> ofOtherRows)
        : top_(std::move(top)), ofOtherRows_(ofOtherRows) {}

    // Its own entries; with `lists`, the access control lists of these and of everything below.
    void Go(bool lists) {
        std::vector<std::wstring> directories;
        directories.push_back(top_);
        while (!directories.empty()) {
            const std::wstring directory = std::move(directories.back());
            directories.pop_back();
            Enter(directory, lists, directories);
        }
    }

    // The entries that have a list of their own, and those that are unknown.
    [[nodiscard]] const Tally& Own() const { return own_; }
    [[nodiscard]] const Tally& Unknown() const { return unknown_; }

    // Why the first of these is unknown.
    [[nodiscard]] DWORD Error() const { return error_; }

private:
    void Enter(const std::wstring& directory, bool lists, std::vector<std::wstring>& directories) {
        WIN32_FIND_DATAW entry = {};
        const Utils::SearchHandle search(::FindFirstFileExW(
            JoinPath(directory, L"*").c_str(), FindExInfoBasic, &entry, FindExSearchNameMatch,
            /*lpSearchFilter=*/nullptr, FIND_FIRST_EX_LARGE_FETCH));
        if (!search) {
            NoteUnknown(directory, ::GetLastError());
            return;
        }
        do {
            const std::wstring name = entry.cFileName;
            if (lists && name != L"." && name != L"..") {
                const std::wstring path = JoinPath(directory, name);
                if (std::ranges::none_of(ofOtherRows_, [&](const std::wstring& other) {
                        return SamePath(path, other);
                    })) {
                    Look(path);
                    if ((entry.dwFileAttributes &
                         (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) ==
                        FILE_ATTRIBUTE_DIRECTORY) {
                        directories.push_back(path);
                    }
                }
            }
        } while (::FindNextFileW(search.Get(), &entry) != FALSE);
        if (const DWORD ended = ::GetLastError(); ended != ERROR_NO_MORE_FILES) {
            NoteUnknown(directory, ended);
        }
    }

    void Look(const std::wstring& path) {
        PSECURITY_DESCRIPTOR const descriptor = reader_.Read(path);
        if (descriptor == nullptr) {
            const DWORD reason = ::GetLastError();
            if (reason != ERROR_FILE_NOT_FOUND) {  // it is gone by now
                NoteUnknown(path, reason);
            }
        } else if (HasItsOwn(descriptor)) {
            own_.Add(Below(path));
        }
    }

    void NoteUnknown(const std::wstring& path, DWORD reason) {
        error_ = unknown_.count == 0 ? reason : error_;
        unknown_.Add(Below(path));
    }

    [[nodiscard]] std::wstring Below(const std::wstring& path) const {
        if (path.size() > top_.size()) {
            return path.substr(top_.size() + 1);
        }
        return L"its entries";
    }

    Tally own_;
    Tally unknown_;
    DWORD error_ = ERROR_SUCCESS;
    std::wstring top_;
    std::span<const std::wstring> ofOtherRows_;
    SecurityReader reader_;
};

// The first of the paths that is a link, without links before it.
std::wstring FirstLink(const std::vector<std::wstring>& paths) {
    const auto link = std::ranges::find_if(paths, &PathHasLink);
    if (link == paths.end()) {
        return L"one that has gone again";
    }
    return *link;
}

std::vector<std::wstring> PathsOfEntries(const std::wstring& directory) {
    std::vector<std::wstring> paths = ListDirectoryEntries(directory);
    for (std::wstring& path : paths) {
        path = JoinPath(directory, path);
    }
    return paths;
}

Finding OfDirectory(const SecuredDirectory& directory, const Place& place,
                    std::span<const std::wstring> ofAllRows) {
    if (!place.Exists()) {
        return NotThere(place);
    }
    if (!place.IsDirectory()) {
        return Found(/*asExpected=*/false, L"a file");
    }
    if (PathHasLink(place.path)) {
        return Found(/*asExpected=*/false,
                     L"a link on the way to it: " + FirstLink(PathLevels(place.path)));
    }
    std::vector<std::wstring> wrong;
    std::vector<std::wstring> unknown;
    if (ChildHasLink(place.path)) {
        wrong.push_back(L"a link among its entries: " + FirstLink(PathsOfEntries(place.path)));
    }
    SecurityReader reader;
    std::wstring list;
    if (PSECURITY_DESCRIPTOR const descriptor = reader.Read(place.path)) {
        list = Notation(descriptor);
        const std::vector<std::wstring> deviations = Deviations(descriptor, directory.aces);
        if (!deviations.empty()) {
            wrong.push_back(Joined(deviations, L", ") + L" in " + list);
        }
    } else {
        unknown.push_back(L"its access list: " + ErrorText(::GetLastError()));
    }
    Walk walk(WithoutBackslash(place.path), ofAllRows);
    // A run does not touch what is below a directory with any further attribute.
    walk.Go(directory.applyToChildren && place.attributes == FILE_ATTRIBUTE_DIRECTORY);
    if (walk.Own().count != 0) {
        wrong.push_back(L"below it, with an access list of its own: " + walk.Own().Text());
    }
    if (walk.Unknown().count != 0) {
        unknown.push_back(L"below it, " + walk.Unknown().Text() + L": " + ErrorText(walk.Error()));
    }
    if (!wrong.empty()) {
        return Found(/*asExpected=*/false, Joined(wrong, L"; "));
    }
    if (!unknown.empty()) {
        return CannotTell(Joined(unknown, L"; "));
    }
    return Found(/*asExpected=*/true, list);
}

}  // namespace

Rows CheckDirectories(std::span<const SecuredDirectory> directories) {
    std::vector<Place> places;
    std::vector<std::wstring> paths;
    for (const SecuredDirectory& directory : directories) {
        places.push_back(PlaceOf(directory.path, directory.resolvePath));
        paths.push_back(WithoutBackslash(places.back().path));
    }
    Rows rows;
    for (std::size_t index = 0; index < directories.size(); ++index) {
        const SecuredDirectory& directory = directories[index];
        rows.push_back({"directory", paths[index].empty() ? directory.path : paths[index],
                        L"without links, " + Notation(directory.aces) +
                            (directory.applyToChildren ? L", inherited below it" : L""),
                        OfDirectory(directory, places[index], paths)});
    }
    return rows;
}

}  // namespace verify
