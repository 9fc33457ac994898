#!/usr/bin/env bash
# Tests that a machine returns its program's exit code, and is taken down even if that does not end, or
# Wine's server ends first.
#
#   fresh_machine_test.sh PROGRAM_THAT_ENDS_WITH_2 PROGRAM_THAT_DOES_NOT_END
set -euo pipefail

# On the file system of the first machine.
TMPDIR=$(mktemp -d -p "$(dirname "$1")")
memory=$(mktemp -d -p /dev/shm)
export TMPDIR
# Not CTest's, which would wait for what outlives its machine.
output=$memory.output
trap 'rm -rf "$TMPDIR" "$memory" "$output"' EXIT
failures=0

# The programs of the machines here, as numbers and names.
programs() {
    { grep -lzs "^WINEPREFIX=$TMPDIR/" /proc/[0-9]*/environ || true; } | cut -d / -f 3 |
        while read -r process; do
            echo "$process $(tr '\0' ' ' <"/proc/$process/cmdline")"
        done 2>/dev/null # for one that has ended meanwhile
}

# expect STATUS PROGRAM: the machine of PROGRAM exits with STATUS, and nothing is left of it.
expect() {
    local status=0 left
    "$(dirname "$0")/fresh_machine.sh" "$2" >"$output" 2>&1 || status=$?
    cat "$output"
    left=$(ls -A "$TMPDIR"; programs)
    if [[ $status != "$1" || $left ]]; then
        echo "$2: expected status $1; status $status; left behind: $left"
        failures=1
    fi
}

# Ends Wine's server as soon as the machine has services, which cannot end without it.
kill_server() {
    until programs | grep -F services.exe >/dev/null; do
        sleep 0.1
    done
    kill -KILL "$(programs | sed -n 's/ [^ ]*wineserver64.*//p')"
}

expect 2 "$1"
TMPDIR=$memory expect 2 "$1" # on another file system
FINASET_MACHINE_LIMIT=1 expect 124 "$2"
kill_server >/dev/null 2>&1 &
FINASET_MACHINE_LIMIT=5 expect 124 "$2"
if kill $! 2>/dev/null; then
    echo "the machine has had no services and no server"
    failures=1
fi

exit "$failures"
