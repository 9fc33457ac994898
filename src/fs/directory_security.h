#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

// A security identifier with at most two sub-authorities, in the platform's layout.
struct SecurityId {
    BYTE revision;
    BYTE subAuthorityCount;
    SID_IDENTIFIER_AUTHORITY authority;
    DWORD subAuthorities[2];
};
static_assert(offsetof(SecurityId, subAuthorities) == offsetof(SID, SubAuthority));

// One access-allowed entry of an access control list.
struct AceSpec {
    std::uint32_t aceFlags;  // inheritance; the low byte counts
    std::uint32_t accessMask;
    SecurityId sid;
};

// One directory to secure.
struct SecuredDirectory {
    std::vector<AceSpec> aces;  // its whole access control list, in this order
    bool applyToChildren;       // everything below keeps only inherited entries
    std::wstring path;          // with unexpanded variables; or what `resolvePath` takes
    std::function<std::wstring(const std::wstring&)> resolvePath;  // or none
};

// Creates each directory of the table (by default the product's), checks that no link is on the way
// to it or among its entries, and sets its access control list. Ends at the first failure other
// than creation. Returns whether all rows are secured; false for no rows.
//
// Each function below expands its paths. None throws when the platform fails.
bool SecureDirectories();
bool SecureDirectories(std::span<const SecuredDirectory> directories);

// Whether any level of the path, from the drive on, is a link or a file with several names.
bool PathHasLink(const std::wstring& path);

// Whether the file has several names. Not if it cannot be opened, such as a directory.
bool HasMultipleHardLinks(const std::wstring& path);

// Whether an entry of the directory is a link or a file with several names. Deeper levels are
// ignored on purpose.
bool ChildHasLink(const std::wstring& directory);

// The names of the directory's own entries, without ".", ".." and those without any attribute.
std::vector<std::wstring> ListDirectoryEntries(const std::wstring& directory);

// The paths of all directories below one, each after those below it.
std::vector<std::wstring> CollectSubdirectories(const std::wstring& directory);

// Gives the path exactly these access-allowed entries, in this order, with inheritance disabled. An
// entry is left out if its trustee is not valid or claims more sub-authorities than there is room
// for. Returns whether it succeeded.
bool SetProtectedDacl(const std::wstring& path, std::span<const AceSpec> aces);

// Removes the explicit access control lists of everything below a directory, at any depth, so that
// only inherited entries remain. Tries all and returns whether all succeeded. A directory with any
// other attribute is skipped and counts as done, on purpose.
bool ResetChildDacls(const std::wstring& directory);

// Removes a path's explicit access control list, so that only inherited entries remain.
bool ResetInheritedDacl(const std::wstring& path);
