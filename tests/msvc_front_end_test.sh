#!/usr/bin/env bash
# Tests that reading the code as Microsoft's compiler does finds what that compiler would reject: makes
# each of the errors below in a copy of the sources; each must be found where it is.
set -euo pipefail
source_directory=$(readlink -f "$(dirname "$0")/..")
headers=$source_directory/build/libc++
if [[ ! -d $headers || ! -x $(command -v clang-cl-19) ]]; then
    echo "./dev lint installs what this needs"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cp -R "$source_directory"/{CMakeLists.txt,CMakePresets.json,cmake,src,tools} .
mkdir build
ln -s "$headers" build/

files=(src/driver/usage.cpp src/driver/case_mapping.cpp src/hw/regex_match.cpp
    src/proc/process_lists.cpp)
resources=build/msvc-front-end/src/finaset.rc
# read_them DIRECTORY: the sources there.
read_them() {
    "$1/cmake/msvc-front-end/check.sh" "${files[@]/%/^}" "$resources^" >found 2>&1
}
# Not in the copy: lint may have read these already.
if ! read_them "$source_directory"; then
    cat found
    echo "something is found before there is a mistake"
    exit 1
fi

cat >>src/driver/usage.cpp <<'CODE'
inline int Planted(const char* format, va_list list) { return ::__ms_vprintf(format, list); }
CODE
cat >>src/driver/case_mapping.cpp <<'CODE'
inline int Planted(wchar_t* text) { return std::swprintf(text, L"%d", 1); }
CODE
# The engine of GCC's library, and everything around it, for every library.
sed -i 's/#ifdef __GLIBCXX__/#if 1/' src/hw/regex_match.cpp
cat >>src/proc/process_lists.cpp <<'CODE'
inline int Planted(int value) { return value ?: 1; }
CODE
sed -i 's/^    BLOCK "VarFileInfo"/    BLOC "VarFileInfo"/' src/driver/finaset.rc.in
# These compile.
cat >>src/driver/actions.h <<'CODE'
[[gnu::const]] int Planted();
CODE
cat >>src/driver/usage.h <<'CODE'
int Planted() __attribute__((const));
CODE
cat >>tools/log_reader/judge.h <<'CODE'
#include <unistd.h>
CODE
cat >>tools/log_reader/judge.cpp <<'CODE'
int Planted() { return ::strcasecmp("a", "A") + ::access("a", 0) + __builtin_ctz(2); }
#pragma GCC diagnostic pop
void Planted(int) { asm("nop"); }
// These are none: asm("") and __attribute__ in a comment, and "__asm__" in a text.
CODE

failures=0
if read_them .; then
    echo "the mistakes are not found"
    failures=1
fi
# expect PLACE TEXT: a finding there (in a file, or by a tool that names none) with the text.
expect() {
    if ! grep -qE "$1[(:].*$2" found; then
        echo "not found in $1: $2"
        failures=1
    fi
}
expect src/driver/usage.cpp '__ms_vprintf'
expect src/driver/case_mapping.cpp "parameter of type 'size_t'"
expect src/hw/regex_match.cpp "'__polynomial'"
expect src/proc/process_lists.cpp 'GNU \?: conditional'
expect 'llvm-rc' 'got BLOC'
expect src/driver/actions.h 'attribute of gnu'
expect src/driver/usage.h '__attribute__'
expect tools/log_reader/judge.h 'unistd.h'
for name in strcasecmp access __builtin_ctz '#pragma GCC' asm; do
    expect tools/log_reader/judge.cpp "$name"
done
if (($(grep -cE '^tools/log_reader/judge.cpp:' found) != 5)); then
    echo "what is no mistake is found in tools/log_reader/judge.cpp"
    failures=1
fi
((failures == 0)) || cat found
exit "$failures"
