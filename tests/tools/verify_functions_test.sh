#!/usr/bin/env bash
# Tests that finaset-verify calls nothing that could change a machine: of the platform, the C runtime and
# the product, its objects use only the functions below.
#
#   verify_functions_test.sh OBJECT...
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/list" <<'TEXT'
AddAccessAllowedAceEx         to a list in memory
CloseHandle
CloseServiceHandle
CoCreateInstance              the Task Scheduler's object, of which it is only asked
CoInitializeEx
CoUninitialize
CompareStringOrdinal
ConvertSecurityDescriptorToStringSecurityDescriptorW
ConvertSidToStringSidW
CreateFileW                   what exists, to read: VerifyProgram.OpensOnlyWhatExistsAndOnlyToRead
CreateStreamOnHGlobal         in memory
CreateToolhelp32Snapshot
FindClose
FindFirstFileExW
FindNextFileW
FormatMessageW
FreeLibrary
GetAce
GetComputerNameW
GetFileAttributesW
GetKernelObjectSecurity
GetLastError
GetProcAddress                GetAdaptersAddresses, CreateXmlReader
GetSecurityDescriptorControl
GetSecurityDescriptorDacl
InitializeAcl                 in memory
InitializeSecurityDescriptor  in memory
IsValidSid
LoadLibraryExW
LocalFree
MapGenericMask
OpenSCManagerW                to be asked: VerifiedServices.AreOpenedWithTheRightToBeAskedAndNoOther
OpenServiceW                  likewise
Process32FirstW
Process32NextW
QueryServiceConfigW
QueryServiceStatus
ReadFile
RegQueryValueExW
SetLastError
SetSecurityDescriptorControl  in memory
SetSecurityDescriptorDacl     in memory
SysAllocString
SysFreeString
SysStringLen
WideCharToMultiByte
__acrt_iob_func               standard output and error
__mingw_vsnwprintf            in memory
fflush                        standard output
fputc                         standard output and error
fputs                         standard output and error
ChildHasLink
ChooseActions                 never with the option that prints
DeleteList
DisableList
ExpandEnvironmentPath
FeatureRuleTable
FileTable
HardwarePatternTable
JoinPath
ListDirectoryEntries
ListPresentAdapterDescriptions
ObsoleteTask
PathHasLink
PathLevels
PathResolver::InDirectory
ProcessPathOf
RegexMatchesWhole
ScheduledTaskTable
SecuredDirectoryTable
SettingKeyText
StartList
StopList
ToLowerInPlace
ToUpperInPlace
Utils::RegistryKey::Close
Utils::RegistryKey::Open
WriteList
TEXT
sed 's/ .*//' "$work/list" | sort >"$work/expected"

# symbols OPTION OBJECT...: names without a function's arguments and an import's prefix. Omits what the
# compiler and the standard library use internally, but not the latter's files and streams.
symbols() {
    x86_64-w64-mingw32-nm --demangle "$@" | sed -nE 's/^[0-9a-f ]+ [A-Za-z] (__imp_)?(.*)$/\2/p' |
        sed -E 's/[([].*//' | grep -vP '^std::(?!filesystem|basic_)|^(operator|typeinfo|vtable|guard) |^[.]|^$' |
        grep -vE '^(___chkstk_ms|__stack_chk_|__cxa_|__gxx_|_Unwind_)|^(mem[a-z]+|strlen|wcslen)$' |
        sort -u
}
symbols --undefined-only "$@" >"$work/undefined"
symbols --defined-only "$@" >"$work/defined"
comm -23 "$work/undefined" "$work/defined" >"$work/called"

if ! diff --unchanged-line-format= --old-line-format='not in the list: %L' \
    --new-line-format='not called: %L' "$work/called" "$work/expected"; then
    exit 1
fi
echo "$(wc -l <"$work/called") names"
