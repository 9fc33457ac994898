#!/usr/bin/env bash
# Tests that a machine hands on how its program ended, and is taken down even if it does not end.
#
#   fresh_machine_test.sh PROGRAM_THAT_ENDS_WITH_2 PROGRAM_THAT_DOES_NOT_END
set -euo pipefail

TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
failures=0

# expect STATUS PROGRAM: what the machine of PROGRAM ends with, and that nothing is left of it.
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
