#!/usr/bin/env bash
# clang-tidy on several files at a time. Nearly all of its time goes into the headers that each of them
# includes: here they are read once for all. Findings are reported for the original file. Files that
# do not compile as one, since two of them have the same names, are read one after another.
#
#   tidy.sh BUILD_DIRECTORY CLANG_OPTION... -- FILE...
#
# The first file's .clang-tidy is for all.
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
        # Tests and programs have the same names.
        namespace=
        if [[ $file == *_test.cpp ]] || grep -qE '^(int|BOOL) .*[mM]ain\(' "$file" &&
            ! grep -qE '^namespace test \{|extern "C"' "$file"; then
            namespace="namespace joined_$((++number)) {"
        fi
        echo "$namespace // joined: $file"
        sed -E 's/^#(include|pragma [^o]).*//' "$file"
        [[ ! $namespace ]] || echo '}'
    done
} >"$joined"

# The options of all, except those for their files and GCC only.
mapfile -t words < <(jq -r --arg root "$PWD/" '.[] | select(.file | ltrimstr($root) | IN($ARGS.positional[])) |
    .command' "$build/compile_commands.json" --args "$@" | xargs -n 1)
declare -A seen=()
compiler=()
for ((word = 0; word < ${#words[@]}; ++word)); do
    option=("${words[word]}")
    case ${words[word]} in
        -isystem) option+=("${words[++word]}") ;;
        -[DI]* | -std=*) ;;
        *) continue ;;
    esac
    [[ ! ${seen[${option[*]}]:-} ]] || continue
    seen[${option[*]}]=1
    compiler+=("${option[@]}")
done
mapfile -t -O ${#compiler[@]} compiler < <(dirname "$@" | sort -u | sed 's/^/-I/')

configuration=$(dirname "$1")
while [[ ! -e $configuration/.clang-tidy && $configuration != . ]]; do
    configuration=$(dirname "$configuration")
done

status=0
# If one of the joined files uses a name, clang-tidy takes the using declarations of all for used.
for file in "$@"; do
    while read -r name; do
        if (($(grep -cw "$name" "$file") == 1)); then
            echo "$file: the using declaration of '$name' is unused"
            status=1
        fi
    done < <(sed -nE 's/^ *using [a-z_:]+::(\w+);/\1/p' "$file")
done
clang-tidy --quiet --config-file="$configuration/.clang-tidy" "$joined" -- \
    "${options[@]}" "${compiler[@]}" >"$work/findings" 2>/dev/null || status=$?
if grep -m 1 'error: .*\[clang-diagnostic-error' "$work/findings" >"$work/error"; then
    echo "$1 and $(($# - 1)) more do not compile as one, and take longer: $(cut -d ' ' -f 2- "$work/error")"
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
