#!/usr/bin/env bash
# Tests that a machine returns its program's exit code, and is taken down even if that does not end.
#
#   fresh_machine_test.sh PROGRAM_THAT_ENDS_WITH_2 PROGRAM_THAT_DOES_NOT_END
set -euo pipefail

TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
failures=0

# expect STATUS PROGRAM: the machine of PROGRAM exits with STATUS, and nothing is left of it.
expect() {
    local status=0
    "$(dirname "$0")/fresh_machine.sh" "$2" || status=$?
    if [[ $status != "$1" || $(ls -A "$TMPDIR") ]]; then
        echo "$2: expected status $1; status $status; left behind: $(ls -A "$TMPDIR")"
        failures=1
    fi
}

expect 2 "$1"
FINASET_MACHINE_LIMIT=1 expect 124 "$2"

exit "$failures"
