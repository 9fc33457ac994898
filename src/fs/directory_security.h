#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

// A security identifier of at most two sub-authorities, laid out as the platform has it.
struct SecurityId {
    BYTE revision;
    BYTE subAuthorityCount;
    SID_IDENTIFIER_AUTHORITY authority;
    DWORD subAuthorities[2];
};
static_assert(offsetof(SecurityId, subAuthorities) == offsetof(SID, SubAuthority));

// One entry of an access list: access allowed to a trustee.
struct AceSpec {
    std::uint32_t aceFlags;  // inheritance; the low byte counts
    std::uint32_t accessMask;
    SecurityId sid;
};

// One directory to secure.
struct SecuredDirectory {
    std::vector<AceSpec> aces;  // the directory's whole access list, in this order
    bool applyToChildren;       // what is below is to have only what it inherits
    std::wstring path;          // with unexpanded variables; or what `resolvePath` takes
    std::function<std::wstring(const std::wstring&)> resolvePath;  // or none
};

// Creates each directory of the table (the product's, if none is given), makes sure that no link is
// on the way to it nor among its entries, and sets its access list. Ends at the first of these that
// fails, but for the creation. Returns whether all rows are secured; false for no row at all.
//
// Paths are expanded by each function below. None throws on a failure of the platform.
bool SecureDirectories();
bool SecureDirectories(std::span<const SecuredDirectory> directories);

// Whether any level of the path, from the drive on, is a link or a file with several names.
bool PathHasLink(const std::wstring& path);

// Whether the file has several names. What cannot be opened, a directory for one, has not.
bool HasMultipleHardLinks(const std::wstring& path);

// Whether an entry of the directory is a link or a file with several names. Deeper levels are not
// looked at: meant.
bool ChildHasLink(const std::wstring& directory);

// The names of the directory's own entries, without "." and ".." and those without any attribute.
std::vector<std::wstring> ListDirectoryEntries(const std::wstring& directory);

// The paths of all directories below one, each behind those that are below it.
std::vector<std::wstring> CollectSubdirectories(const std::wstring& directory);

// Gives the path exactly these access-allowed entries, in this order, and lets it inherit none. An
// entry whose trustee is not valid, or says that it has more sub-authorities than there is room
// for, is left out. Returns whether that was done.
bool SetProtectedDacl(const std::wstring& path, std::span<const AceSpec> aces);

// Takes their own access lists from everything below a directory, at any depth, so that they have
// what they inherit. Returns whether that was done for all of them; all are tried. A directory that
// has any attribute beside that of being one is left alone, and that counts as done: meant.
bool ResetChildDacls(const std::wstring& directory);

// Takes its own access list from a path, so that it has what it inherits.
bool ResetInheritedDacl(const std::wstring& path);
