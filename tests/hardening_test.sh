#!/usr/bin/env bash
# Tests the shipping program's file: reads it, and builds it again elsewhere.
#
#   hardening_test.sh PROGRAM
# shellcheck disable=SC2317  # check calls the functions
set -euo pipefail
source_directory=$(readlink -f "$(dirname "$0")/..")
program=$(readlink -f "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failed=0
# check WHAT COMMAND...: the command must succeed.
check() {
    local what=$1
    shift
    if "$@"; then
        echo "ok: $what"
    else
        echo "FAILED: $what"
        failed=1
    fi
}

headers=$work/headers
x86_64-w64-mingw32-objdump -p "$program" >"$headers"
for flag in HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT; do
    check "the header says $flag" grep -q "^\s*$flag$" "$headers"
done
# Without relocations its address would be fixed all the same.
check "it can be moved" grep -qE '^Entry 5 0*[1-9a-f]' "$headers"
check "it has no debug directory" grep -qE '^Entry 6 0+ 0+ ' "$headers"

no_section_is_writable_code() {
    x86_64-w64-mingw32-objdump -h "$program" >"$work/sections"
    grep -q CODE "$work/sections" && ! grep -q '^[^R]*\bCODE\b' "$work/sections"
}
check "no section is both writable and executable" no_section_is_writable_code

has_no_symbols() {
    x86_64-w64-mingw32-objdump -t "$program" >"$work/symbols"
    grep -qx 'no symbols' "$work/symbols"
}
check "it has no symbols" has_no_symbols

# A function with a buffer calls the one that ends the program with a fast fail; the product has more
# than a hundred.
is_stack_protected() {
    x86_64-w64-mingw32-objdump -d "$program" >"$work/code"
    local fail
    fail=$(grep -B 1 -E 'int +[$]0x29' "$work/code" | sed -nE '1s/^ *([0-9a-f]+):.*/\1/p')
    [[ $fail ]] && (($(grep -cE "call +0x$fail" "$work/code") >= 50))
}
check "its functions guard their stack" is_stack_protected

names_no_place() {
    strings "$program" >"$work/texts"
    strings --encoding=l "$program" >>"$work/texts"
    ! grep -F -e "$source_directory" -e /home/ -e /root/ -e /usr/ -e /tmp/ \
        "$work/texts"
}
check "it names no place of the machine that built it" names_no_place

mkdir "$work/another directory"
cd "$source_directory"
cp -R CMakeLists.txt CMakePresets.json cmake packaging src tools "$work/another directory/"
cd "$work/another directory"
if ! { cmake --preset mingw-release -DBUILD_TESTING=OFF &&
    cmake --build --preset mingw-release --target Finaset; } >"$work/log" 2>&1; then
    cat "$work/log"
    exit 1
fi
check "a build in another directory gives the same bytes" \
    cmp "$program" build/mingw-release/bin/Finaset.exe

# By a variable of the program's own that is zero, so it is in .bss.
expands_no_arguments() {
    x86_64-w64-mingw32-nm build/mingw-release/src/CMakeFiles/Finaset.dir/driver/main.cpp.obj \
        >"$work/names"
    grep -qE ' B _dowildcard$' "$work/names"
}
check "its start-up code takes no argument for a pattern" expands_no_arguments

exit "$failed"
