#!/usr/bin/env bash
# clang-tidy on several tests at a time. Nearly all of its time goes into the headers that each of them
# includes: here they are read once for all. The code of each file is in a namespace of its own, and
# findings are reported for the original file.
#
#   tidy.sh BUILD_DIRECTORY CLANG_OPTION... -- FILE...
#
# The files have the same options, and only an unnamed namespace after their includes.
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
    grep -hE '^#(include|pragma)' "$@" | awk '!seen[$0]++' # their order matters
    for file in "$@"; do
        printf 'namespace joined_%d { // %s\n' $((++number)) "$file"
        sed -E 's/^#(include|pragma).*//' "$file"
        echo '}'
    done
} >"$joined"

# The first one's options, except those for its files and GCC only.
mapfile -t words < <(jq -r --arg file "$(readlink -f "$1")" \
    '.[] | select(.file == $file) | .command' "$build/compile_commands.json" | xargs -n 1)
for ((word = 1; word < ${#words[@]}; ++word)); do
    case ${words[word]} in
        -o | -c | -include | -M[TF]) ((++word)) ;;
        -isystem) options+=("${words[word]}" "${words[++word]}") ;;
        -[DI]* | -std=*) options+=("${words[word]}") ;;
    esac
done

status=0
clang-tidy --quiet --config-file="$(dirname "$0")/.clang-tidy" "$joined" -- "${options[@]}" \
    >"$work/findings" 2>/dev/null || status=$?
awk -v joined="$joined" '
    FNR == NR {
        if (/^namespace joined_/) { file = $NF; first = FNR }
        files[FNR] = file; lines[FNR] = FNR - first
        next
    }
    index($0, joined ":") == 1 {
        split(substr($0, length(joined) + 2), place, ":")
        $0 = files[place[1]] ":" lines[place[1]] substr($0, length(joined) + 2 + length(place[1]))
    }
    { print }' "$joined" "$work/findings"
exit "$status"
