#!/usr/bin/env bash
# Tests that each engine for which docs/log.md has a command reports about some hundred logs correctly.
#
#   engines_test.sh MAKE_LOGS FINASET_LOG
set -euo pipefail

maker=$1
reader=$(readlink -f "$2")
root=$(readlink -f "$(dirname "$0")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

"$root/tests/machine/fresh_machine.sh" "$maker" "Z:$work" 300
# Some systems have another Python, too; this one has the distribution's packages.
export PATH=$work/bin:/usr/bin:$PATH
mkdir "$work/bin"
ln -s "$reader" "$work/bin/finaset-log"
cd "$work/logs"

# The blocks of commands, each into a file.
awk -v work="$work" '
    /^## / {below = /^## The reader/}
    /^```sh$/ && below {block = work "/block" (++count); next}
    /^```$/ {block = ""}
    block {print > block}' "$root/docs/log.md"
[[ $(head -qn 1 "$work"/block* | cut -d ' ' -f 1 | xargs) == 'finaset-log jq sqlite3 python3' ]] || {
    echo "docs/log.md has other commands: $(head -qn 1 "$work"/block*)"
    exit 1
}

# By version and service, the logs whose last run contains the line; UTF-16 without its zeros.
for log in */*.log; do
    tr -d '\000\r' <"$log" | awk -v windows="${log%/*}" '
        /FIRST RUN - START/ {delete failed}
        sub(/^Starting /, "") && !/^Application / && sub(/\.\.\.\.start failed!$/, "") {failed[$0]}
        END {for (service in failed) print windows, service}'
done | sort | uniq -c | sed 's/^ *//' | sort >"$work/expected"
(($(wc -l <"$work/expected") >= 4)) || {
    echo "hardly anything is to be found"
    exit 1
}

status=0
bash "$work/block1" || status=$?
((status == 1)) || echo "finaset-log: exit status $status"
for block in 2 3 4; do
    # Counts come first or last, with any blanks between the columns.
    bash "$work/block$block" | grep . | tr -s ' \t' ' ' | sed 's/^ //' |
        sed -E 's/^(win[^ ]+ .*) ([0-9]+)$/\2 \1/' | sort >"$work/found"
    diff "$work/expected" "$work/found" || {
        echo "$(head -n 1 "$work/block$block"): not what is in the logs"
        failures=1
    }
done
exit "$failures"
