#!/usr/bin/env bash
# Reads src and tools as Microsoft's compiler would, or only the FILEs, named from here; reads only what
# has changed since the last time. Exits with code 1 if there is a finding.
#
#   check.sh [FILE...]
set -euo pipefail
cd "$(dirname "$0")/../.."

bad=0
mapfile -t sources < <(find src tools -name '*.cpp' -o -name '*.h')
cmake/msvc-front-end/refused_names.py "${sources[@]}" || bad=1
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! cmake --preset msvc-front-end >"$log" 2>&1; then
    cat "$log"
    bad=1
elif ! ninja -C build/msvc-front-end -k 0 "${@/#/$PWD/}" >"$log" 2>&1; then
    grep -vE '^(\[[0-9]|/usr/bin/|ninja:)' "$log" # without the commands
    bad=1
fi
exit "$bad"
