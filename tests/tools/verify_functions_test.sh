#!/usr/bin/env bash
# Tests that the program that says whether a machine is in order calls nothing that could change it:
# of the platform and of the product, its objects call the functions below and no other.
#
#   verify_functions_test.sh OBJECT...
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sort >"$work/expected" <<'TEXT'
CoCreateInstance                 of the Task Scheduler's object
CoInitializeEx
CoUninitialize
CreateFileW                      of what exists, to read
CreateStreamOnHGlobal            in memory
CreateToolhelp32Snapshot
FindFirstFileExW
FindNextFileW
GetFileAttributesW
GetKernelObjectSecurity
QueryServiceConfigW
QueryServiceStatus
ReadFile
RegQueryValueExW
TEXT
