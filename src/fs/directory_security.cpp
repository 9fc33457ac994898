#include "fs/directory_security.h"

#include "driver/console_log.h"
#include "fs/path_helpers.h"
#include "fs/secured_directories.h"
#include "shared/owner.h"

#include <windows.h>

#include <aclapi.h>

#include <algorithm>
#include <iterator>

namespace {

bool IsLink(const std::wstring& path) {
    const DWORD attributes = GetPathAttributes(path);
    const bool reparsePoint =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    return reparsePoint || HasMultipleHardLinks(path);
}

// Calls `visit` with each entry that matches the pattern, except "." and "..".
template <typename Visit>
void ForEachEntry(const std::wstring& pattern, Visit visit) {
    WIN32_FIND_DATAW entry = {};
    const Utils::SearchHandle search(::FindFirstFileW(pattern.c_str(), &entry));
    if (!search) {
        return;
    }
    do {
        const std::wstring name = entry.cFileName;
        if (name != L"." && name != L"..") {
            visit(name, entry.dwFileAttributes);
        }
    } while (::FindNextFileW(search.Get(), &entry));
}

void AppendSubdirectories(const std::wstring& directory, std::vector<std::wstring>& paths) {
    ForEachEntry(JoinPath(ExpandEnvironmentPath(directory), L"*"),
                 [&](const std::wstring& name, DWORD attributes) {
                     if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                         const std::wstring path = JoinPath(directory, name);
                         AppendSubdirectories(path, paths);
                         paths.push_back(path);
                     }
                 });
}

bool SetAccessList(const std::wstring& path, SECURITY_INFORMATION inheritance, PACL list) {
    std::wstring target = ExpandEnvironmentPath(path);
    const DWORD error = ::SetNamedSecurityInfoW(
        target.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | inheritance,
        /*psidOwner=*/nullptr, /*psidGroup=*/nullptr, list, /*pSacl=*/nullptr);
    ::SetLastError(error);
    return error == ERROR_SUCCESS;
}

// Memory for an access control list, empty at first.
class AccessList {
public:
    explicit AccessList(std::size_t bytes)
        : storage_((bytes + sizeof(DWORD) - 1) / sizeof(DWORD)),
          valid_(::InitializeAcl(Get(), static_cast<DWORD>(storage_.size() * sizeof(DWORD)),
                                 ACL_REVISION) != FALSE) {}

    // Appends the entry.
    void Add(const AceSpec& ace, PSID sid) {
        const auto flags = static_cast<BYTE>(ace.aceFlags);  // one byte in the list
        valid_ = valid_ &&
                 ::AddAccessAllowedAceEx(Get(), ACL_REVISION, flags, ace.accessMask, sid) != FALSE;
    }

    // Sets the list on a path, unless it could not be built completely.
    bool Set(const std::wstring& path, SECURITY_INFORMATION inheritance) {
        return valid_ && SetAccessList(path, inheritance, Get());
    }

private:
    PACL Get() { return reinterpret_cast<PACL>(storage_.data()); }

    std::vector<DWORD> storage_;  // DWORDs, for the alignment that a list needs
    bool valid_;
};

bool SecureDirectory(const SecuredDirectory& directory) {
    const std::wstring target =
        directory.resolvePath ? directory.resolvePath(directory.path) : directory.path;
    const std::wstring shown = ExpandEnvironmentPath(target);

    ConsolePrint("Creating Directory %ls \t - \t", shown.c_str());
    PrintVerdict(CreateDirectoryPath(target));

    const auto report = [](bool success) {
        PrintVerdict(success);
        return success;
    };
    ConsolePrint("Verifying File/Directory %ls has NO links\t - \t", shown.c_str());
    if (!report(!PathHasLink(target))) {
        return false;
    }
    ConsolePrint("Verifying Children Files of Directory %ls has NO links\t - \t", shown.c_str());
    if (!report(!ChildHasLink(target))) {
        return false;
    }
    ConsolePrint("Setting DACLs on File/Directory %ls \t - \t", shown.c_str());
    if (!report(SetProtectedDacl(target, directory.aces))) {
        return false;
    }
    if (!directory.applyToChildren) {
        return true;
    }
    ConsolePrint("Setting Child Inheritance DACLs on File/Directory %ls \t - \t", shown.c_str());
    return report(ResetChildDacls(target));
}

}  // namespace

bool SecureDirectories() {
    return SecureDirectories(SecuredDirectoryTable);
}

bool SecureDirectories(std::span<const SecuredDirectory> directories) {
    return !directories.empty() && std::ranges::all_of(directories, &SecureDirectory);
}

bool PathHasLink(const std::wstring& path) {
    return std::ranges::any_of(PathLevels(ExpandEnvironmentPath(path)), &IsLink);
}

bool HasMultipleHardLinks(const std::wstring& path) {
    if (path.empty()) {
        return false;
    }
    // Without FILE_FLAG_BACKUP_SEMANTICS, so that no directory opens, on purpose.
    const Utils::FileHandle file(
        ::CreateFileW(ExpandEnvironmentPath(path).c_str(), GENERIC_READ, /*dwShareMode=*/0,
                      /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_READONLY,
                      /*hTemplateFile=*/nullptr));
    BY_HANDLE_FILE_INFORMATION information = {};
    return file && ::GetFileInformationByHandle(file.Get(), &information) != FALSE &&
           information.nNumberOfLinks > 1;
}

bool ChildHasLink(const std::wstring& directory) {
    return std::ranges::any_of(ListDirectoryEntries(directory), [&](const std::wstring& name) {
        return IsLink(JoinPath(directory, name));
    });
}

std::vector<std::wstring> ListDirectoryEntries(const std::wstring& directory) {
    std::vector<std::wstring> names;
    if (directory.empty()) {
        return names;
    }
    ForEachEntry(ExpandEnvironmentPath(directory) + L"\\*",
                 [&](const std::wstring& name, DWORD attributes) {
                     if (attributes != 0) {
                         names.push_back(name);
                     }
                 });
    return names;
}

std::vector<std::wstring> CollectSubdirectories(const std::wstring& directory) {
    std::vector<std::wstring> paths;
    AppendSubdirectories(directory, paths);
    return paths;
}

bool SetProtectedDacl(const std::wstring& path, std::span<const AceSpec> aces) {
    AccessList list(sizeof(ACL) + aces.size() * (sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD) +
                                                 sizeof(SecurityId)));
    for (const AceSpec& ace : aces) {
        SecurityId sid = ace.sid;
        // To the platform, one with more than there is room for is valid too.
        if (sid.subAuthorityCount <= std::size(sid.subAuthorities) && ::IsValidSid(&sid)) {
            list.Add(ace, &sid);
        }
    }
    return list.Set(path, PROTECTED_DACL_SECURITY_INFORMATION);
}

bool ResetChildDacls(const std::wstring& directory) {
    if (GetPathAttributes(directory) != FILE_ATTRIBUTE_DIRECTORY) {  // equality on purpose
        return true;
    }
    std::vector<std::wstring> parents = CollectSubdirectories(directory);
    parents.insert(parents.begin(), directory);
    bool allReset = true;
    for (const std::wstring& parent : parents) {
        for (const std::wstring& name : ListDirectoryEntries(parent)) {
            allReset &= ResetInheritedDacl(JoinPath(parent, name));
        }
    }
    return allReset;
}

bool ResetInheritedDacl(const std::wstring& path) {
    ACL empty = {
        .AclRevision = ACL_REVISION, .Sbz1 = 0, .AclSize = sizeof(ACL), .AceCount = 0, .Sbz2 = 0};
    return SetAccessList(path, UNPROTECTED_DACL_SECURITY_INFORMATION, &empty);
}
