#!/usr/bin/env bash
# clang-tidy on several files at a time. Nearly all of its time goes into the headers that each of them
# includes: here they are read once for all. Findings are reported for the original file. Files that
# do not compile as one, such as several programs, are read one after another.
#
#   tidy.sh BUILD_DIRECTORY CLANG_OPTION... -- FILE...
#
# The files are in one directory, and have the same options.
set -euo pipefail

build=$1
shift
options=()
while [[ $1 != -- ]]; do
    options+=("$1")
    shift
done
shift

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
joined=$work/joined.cpp
number=0
{
    grep -hE '^#(include|pragma [^o])' "$@" | awk '!seen[$0]++' # their order matters
    for file in "$@"; do
        # Tests have the same names in their unnamed namespaces.
        namespace=
        if [[ $file == *_test.cpp ]] && ! grep -qE '^namespace test \{|extern "C"' "$file"; then
            namespace="namespace joined_$((++number)) {"
        fi
        echo "$namespace // joined: $file"
        sed -E 's/^#(include|pragma [^o]).*//' "$file"
        [[ ! $namespace ]] || echo '}'
    done
} >"$joined"

# The first one's options, except those for its files and GCC only.
mapfile -t words < <(jq -r --arg file "$(readlink -f "$1")" \
    '.[] | select(.file == $file) | .command' "$build/compile_commands.json" | xargs -n 1)
compiler=()
for ((word = 1; word < ${#words[@]}; ++word)); do
    case ${words[word]} in
        -o | -c | -include | -M[TF]) ((++word)) ;;
        -isystem) compiler+=("${words[word]}" "${words[++word]}") ;;
        -[DI]* | -std=*) compiler+=("${words[word]}") ;;
    esac
done

configuration=$(dirname "$1")
while [[ ! -e $configuration/.clang-tidy && $configuration != . ]]; do
    configuration=$(dirname "$configuration")
done

status=0
clang-tidy --quiet --config-file="$configuration/.clang-tidy" "$joined" -- \
    "${options[@]}" "${compiler[@]}" >"$work/findings" 2>/dev/null || status=$?
if ((status)) && grep -qE 'error: .*\[clang-diagnostic-error' "$work/findings"; then
    clang-tidy --quiet -p "$build" "${options[@]/#/--extra-arg=}" "$@" 2>/dev/null
    exit
fi
awk -v joined="$joined" '
    FNR == NR {
        if (/\/\/ joined: /) { file = $NF; first = FNR }
        files[FNR] = file; lines[FNR] = FNR - first
        next
    }
    index($0, joined ":") == 1 {
        split(substr($0, length(joined) + 2), place, ":")
        $0 = files[place[1]] ":" lines[place[1]] substr($0, length(joined) + 2 + length(place[1]))
    }
    { print }' "$joined" "$work/findings"
exit "$status"
