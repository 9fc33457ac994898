#!/usr/bin/env bash
# Tests what show_run shows: the machine before, the log, and the machine after.
#
#   show_run_test.sh SHOW_RUN_EXE
set -euo pipefail

shown=$(mktemp)
trace=$(mktemp)
trap 'rm -f "$shown" "$trace"' EXIT
FINASET_ADAPTERS=TarselQZ311:another "$(dirname "$0")/fresh_machine.sh" "$1" "Z:${shown//\//\\}" "Z:${trace//\//\\}" 2>"$trace"

# Not through a pipe: an early match would end the writer, which pipefail treats as a failure.
sed -i 's/\r//g' "$shown"
failures=0
expect() {
    grep --text --quiet -- "$1" "$shown" || {
        echo "not shown: $1"
        failures=1
    }
}

expect '^== The machine before$'
expect '^  Tarsel Nimbus Network Service         automatic  running *$'
expect '^  FirstRun                              1$'
expect '^== Finaset.exe$'
expect '^FIRST RUN - START$'
expect '^Stopping Corvo....stopped$'
expect '^FIRST RUN - FINISHED$'
expect '^== Exit code 0$'
expect '^== The machine after'
expect '^  Corvo                                 automatic  running      → automatic  stopped$'
expect '^  ZEFIR.exe                             running                 → not running$'
expect '^  BriskoLU.exe                          not running             → running$'
expect "^  Nimbus.ConfigurationFiles.user.xml    the user's own$"
expect '^  Nimbus.ConfigurationFiles.oem.xml     absent                  → shipped oem.xml$'
expect '^  HKLM.SOFTWARE.Halvane.SAP             a key                   → absent$'
expect '^  FirstRun                              1                       → 0$'
expect '^  VxIdle Task                           absent                  → scheduled$'
expect '^  Tarsel Lumetra Startup Task           scheduled               → absent$'
expect '^  ProgramData/Tarsel/Nimbus             Administrators: everything; Local System: everything$'
expect '^  ProgramData/Tarsel/ImageCache .*; Users: read and run$'
expect '^== finaset-verify.exe, with these access lists$'
expect '^ok       directory  C:.ProgramData.Tarsel.ImageCache$'
expect '^ok       start      BriskoLU.exe$'
expect '^[0-9]* rows: [0-9]* ok, 0 DIFFERS, 0 UNKNOWN$'

if grep --text --quiet '^No adapter' "$shown"; then
    echo "SKIPPED, what an adapter brings: no adapter can be made here"
else
    expect '^Found Adapter TarselQZ311 to configure  Bitmask 0x2$'
    expect '^Writing Registry Setting .*MultiInterface_Enabled=1$'
    expect '^  Tarsel_HWConfig                       absent                  → 2$'
    expect '^  MultiInterface_Enabled                absent                  → 1$'
fi

((failures == 0)) || cat "$shown"
exit "$failures"
