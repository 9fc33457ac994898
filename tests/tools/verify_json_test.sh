#!/usr/bin/env bash
# Tests that finaset-verify's JSON is valid: for a machine, and for names of everything that a name can
# contain.
#
#   verify_json_test.sh FINASET_VERIFY_EXE VERIFY_TESTS_EXE
set -euo pipefail

fresh_machine=$(dirname "$(readlink -f "$0")")/../machine/fresh_machine.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# expect FILE FILTER: the jq filter must return true for the only text in the file.
expect() {
    [[ $(jq --slurp --compact-output "length == 1 and (.[0] | $2)" "$1" 2>&1) == true ]] || {
        echo "not so: $2"
        cat "$1"
        failures=1
    }
}

status=0
"$fresh_machine" "$1" --json >"$work/machine" || status=$?
((status == 1)) || { echo "exit status $status, not 1"; failures=1; }
[[ $(wc -l <"$work/machine") == 1 ]] || { echo "more than one line"; failures=1; }
expect "$work/machine" '(.computer | length > 0) and (.version | test("^[0-9]+[.][0-9]+[.][0-9]+$"))'
expect "$work/machine" '.actions == 15'
for verdict in ok:ok differs:DIFFERS unknown:UNKNOWN; do
    expect "$work/machine" \
        ".${verdict%:*} == ([.rows[] | select(.verdict == \"${verdict#*:}\")] | length)"
done
expect "$work/machine" '.rows | all(keys == ["expected", "found", "kind", "name", "verdict"])'
expect "$work/machine" '[.rows[] | select(.kind == "stop" and .name == "Corvo")] | length == 1'

FINASET_JSON="Z:${work//\//\\}\\names" "$fresh_machine" "$2" \
    --gtest_filter='VerdictAsJson.EscapesWhatIsNotAscii' >/dev/null
expect "$work/names" '.computer == "\"NAME\\"'
expect "$work/names" '.actions == 4294967295'
expect "$work/names" '.rows[0].name == "a \"b\" \\ / \u0001\t\r\n\u007f"'
expect "$work/names" '.rows[0].expected == "é中" and .rows[1].name == "😀"'
expect "$work/names" '.rows[1].expected == "half a pair: \\ud800"'
expect "$work/names" '.rows[1].found == "\\udc00\\ud800"'

exit "$failures"
