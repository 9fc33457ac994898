#!/usr/bin/env bash
# Tests ./dev's messages for invalid calls, and its help.
set -euo pipefail
cd "$(dirname "$0")/.."

failures=0

# expect STATUS TEXT ARGUMENT...: ./dev ARGUMENT... exits with STATUS and prints TEXT somewhere.
expect() {
    local status=$1 text=$2 printed actual=0
    shift 2
    printed=$(./dev "$@" 2>&1) || actual=$?
    if [[ $actual != "$status" || $printed != *"$text"* ]]; then
        printf './dev %s: expected status %s and "%s"; status %s:\n%s\n' \
            "$*" "$status" "$text" "$actual" "$printed"
        failures=1
    fi
}

expect 0 'usage: ./dev COMMAND'
expect 0 '--keep leaves the machine' help
expect 2 "there is no command 'tset'" tset
expect 2 'usage: ./dev COMMAND' tset
expect 2 'build takes no argument' build all
expect 2 'package takes no argument' package msi
expect 2 'test takes one name at the most' test one two
expect 2 "no test has a name that contains 'Machine.*-Machine.A'" test 'Machine.*-Machine.A'
expect 2 "no test has a name that contains 'Actions:Usage'" test Actions:Usage
expect 2 "run does not know '/STOP'" run /STOP
expect 2 "run does not know '--kep'" run --kep -- /STOP
expect 2 'bench takes --minutes and a number' bench 5
expect 2 'bench takes --minutes and a number' bench --minutes
expect 2 'bench takes --minutes and a number' bench --minutes 0
expect 2 'bench takes --minutes and a number' bench --again 5
expect 2 'windows-kit takes no argument' windows-kit all
expect 2 'logs takes no argument' logs all
expect 2 'lint takes no argument' lint src
expect 2 'format takes no argument' format src

exit "$failures"
