#!/usr/bin/env bash
# Tests that the sweep makes each platform function fail that the product's objects call, except those
# below.
#
#   functions_test.sh OBJECT...
set -euo pipefail
injector=$(dirname "$0")/fault_injector.cpp
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/exceptions" <<'TEXT'
CoUninitialize          cannot fail
GetCurrentProcess       cannot fail
GetCurrentProcessId     cannot fail
GetCurrentThreadId      cannot fail
GetLastError            cannot fail
GetSystemTimeAsFileTime cannot fail
GetTickCount64          cannot fail
QueryPerformanceCounter cannot fail
SetLastError            cannot fail
Sleep                   cannot fail
SysFreeString           cannot fail
GetModuleHandleW        asks for a library that is always there, once; unit tests
RegDeleteKeyW           serves where there is no RegDeleteKeyExW; unit tests
_fileno                 the C runtime's output; unit tests, and the machine's with a full disk
_setmode                the C runtime's output; as above
_vscwprintf             the C runtime's formatting; unit tests
_vsnwprintf             the C runtime's formatting; unit tests
TEXT

# C++ mangles its functions' names, and the standard library's are in lower case.
x86_64-w64-mingw32-nm --undefined-only "$@" |
    sed -nE 's/^ +U (__imp_)?(_[a-z]\w+|[A-Z][A-Za-z0-9]+)$/\1\2/p' | grep -E '^(__imp_|[A-Z])' |
    sed 's/^__imp_//' | sort -u >"$work/undefined"
x86_64-w64-mingw32-nm --defined-only "$@" | sed 's/.* //' | sort -u >"$work/defined"
comm -23 "$work/undefined" "$work/defined" >"$work/called"

{
    tr -d '\n' <"$injector" | grep -oE '(>\( *|Import\()"\w+"' | grep -oE '\w+"' | tr -d '"'
    sed 's/ .*//' "$work/exceptions"
} | sort >"$work/covered"

if ! diff --unchanged-line-format= --old-line-format='not in the sweep: %L' \
    --new-line-format='not called by the product: %L' "$work/called" "$work/covered"; then
    exit 1
fi
echo "$(wc -l <"$work/called") functions, $(wc -l <"$work/exceptions") of them exceptions"
