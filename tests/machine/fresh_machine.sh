#!/usr/bin/env bash
# Runs a Windows program on a Windows machine of its own: a fresh Wine prefix without display and
# network, with its own service manager and registry. Takes the machine down and exits with the
# program's exit code. Any number of machines can run side by side. The first one sets up a machine in
# build/machine, which is never started; all are copies of it.
#
#   fresh_machine.sh PROGRAM [ARGUMENT...]
#
# With FINASET_KEEP_MACHINE=DIRECTORY the machine is built there and kept. Any other is taken down after
# FINASET_MACHINE_LIMIT seconds, with exit code 124 if the program has not ended by then.
#
# FINASET_FILES=DIRECTORY becomes the machine's C:\files, and is deleted with the machine.
#
# The machine's network adapters are the ends of the cables in FINASET_ADAPTERS, "NAME:NAME ...", with
# names of at most 15 bytes, and the loopback. If the computer does not allow that, the machine has the
# computer's own adapters, and FINASET_ADAPTERS is not set for the program.
set -euo pipefail

no_adapters() {
    echo "fresh_machine.sh: $*" >&2
    unset FINASET_ADAPTERS
}

if [[ -z ${FINASET_IN_NETWORK:-} ]]; then
    export FINASET_IN_NETWORK=1
    self=$(readlink -f "$0")
    unshare --net true 2>/dev/null && exec unshare --net "$self" "$@"
    unshare --user --map-root-user --net true 2>/dev/null &&
        exec unshare --user --map-root-user --net "$self" "$@"
    no_adapters "no network namespace is allowed here; the machine has the computer's adapters"
else
    for cable in ${FINASET_ADAPTERS:-}; do
        ip link add "${cable%:*}" type veth peer name "${cable#*:}" || {
            no_adapters "no adapter can be made here"
            break
        }
    done
fi
unset FINASET_IN_NETWORK

# Less than CTest's limit, since a test that CTest ends leaves its machine behind.
limit=${FINASET_MACHINE_LIMIT:-270}

wine=(/usr/lib/wine/wine64)
wineserver=/usr/lib/wine/wineserver64

# Linux puts a program's heap anywhere in the gigabyte after Wine's loader, which contains the page that
# Windows shares with each process: one process in 8,000 could not be started.
if setarch --addr-no-randomize true 2>/dev/null; then
    wine=(setarch --addr-no-randomize "${wine[@]}")
fi

build=$(readlink -f "$(dirname "$0")/../../build")
mkdir -p "$build"

# with_build DIRECTORY: whether hard links can lead from there to the build directory.
with_build() {
    [[ $(stat --format %d "$1") == $(stat --format %d "$build") ]]
}

directory=${TMPDIR:-/tmp}
with_build "$directory" || directory=$build
machine=${FINASET_KEEP_MACHINE:-$(mktemp -d "$directory/finaset-machine.XXXXXX")}
mkdir -p "$machine"

take_down() {
    "$wineserver" -k || true # it may have ended already
    "$wineserver" -w
    # On a busy computer the server may end before it has ended all others. Those would wait for it
    # for ever, and keep this script's output open.
    local left
    unset WINEPREFIX # of the commands that follow
    while left=$({ grep -lzsxF "WINEPREFIX=$machine/prefix" /proc/[0-9]*/environ || true; } |
        cut -d / -f 3) && [[ $left ]]; do
        xargs kill -KILL <<<"$left" || true # it has just ended
        sleep 0.1
    done
    rm -rf "$machine"
}
if [[ -z ${FINASET_KEEP_MACHINE:-} ]]; then
    trap take_down EXIT
    trap 'exit 130' HUP INT TERM
fi

# The machine must not see or link to anything of its user, and must leave nothing.
export HOME=$machine TMPDIR=$machine WINEPREFIX=$machine/prefix LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY
export WINEDEBUG=${WINEDEBUG:--all}
# No installations, no menus, no debugger, which would keep a crashed program waiting, and no USB, whose
# driver has a thread that can outlive the machine.
export WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe,winedbg.exe,wineusb.sys=d'

# set_up ARGUMENT...: runs one of Wine's own programs, and shows its output if it fails.
set_up() {
    "${wine[@]}" "$@" >"$machine/set-up.log" 2>&1 </dev/null || {
        cat "$machine/set-up.log" >&2
        echo "the machine cannot be set up; free there:" \
            "$(df --human-readable --output=avail "$machine" | tail -n 1)" >&2
        exit 1
    }
}

# Setting one up takes seconds, a copy a fraction of one. It fits this Wine and this script.
original=$build/machine
state="$(dpkg-query -W wine64) $(md5sum <"$0")"
exec {lock}>"$build/machine.lock"
flock "$lock"
if [[ $(cat "$original/state" 2>/dev/null) != "$state" ]]; then
    rm -rf "$original"
    mkdir "$original" "$WINEPREFIX"
    set_up wineboot -i
    set_up reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
    "$wineserver" -w
    # Links to this machine's home, which the copies do not have.
    find "$WINEPREFIX/drive_c/users" -type l -exec rm {} \; -exec mkdir {} \;
    mv "$WINEPREFIX/drive_c/windows/system32" "$original/"
    mv "$WINEPREFIX" "$original/"
    echo "$state" >"$original/state"
fi
# One processor for all of a machine, the one with the fewest machines: its programs call Wine's server
# all the time, which costs twice as much if it has to wake another processor.
mapfile -t processors < <(sed -n 's/^Cpus_allowed_list:[[:space:]]*//p' /proc/self/status |
    tr , '\n' | while IFS=- read -r first last; do seq "$first" "${last:-$first}"; done)
machines=()
while read -r processor; do
    machines[processor]=$((${machines[processor]:-0} + 1))
done < <(grep -ls 'fresh_machine\.sh' /proc/[0-9]*/cmdline | sed 's/cmdline$/status/' |
    xargs -r sed -n 's/^Cpus_allowed_list:[[:space:]]*\([0-9]*\)$/\1/p' 2>/dev/null)
chosen=${processors[0]}
for processor in "${processors[@]}"; do
    ((${machines[processor]:-0} >= ${machines[chosen]:-0})) || chosen=$processor
done
taskset --pid --cpu-list "$chosen" $$ >/dev/null
exec {lock}>&-
cp -a "$original/prefix" "$machine/"
# The system's own files, half a gigabyte, are never written to: hard links will do.
link=--link
with_build "$machine" || link=--reflink=auto # a kept one, elsewhere
cp -a "$link" "$original/system32" "$WINEPREFIX/drive_c/windows/"

if [[ -n ${FINASET_FILES:-} ]]; then
    mv "$FINASET_FILES" "$WINEPREFIX/drive_c/files"
fi

# On the machine's own drive: elsewhere, a path that begins with a backslash would lead to the root
# of the host computer.
program=$(readlink -f "$1")
shift
cd "$WINEPREFIX/drive_c"

if [[ -n ${FINASET_KEEP_MACHINE:-} ]]; then
    # Protected from the hang-up signal of a closing terminal.
    setsid --wait "${wine[@]}" "$program" "$@"
else
    left=$((limit - SECONDS))
    timeout --kill-after=5 $((left > 0 ? left : 1)) "${wine[@]}" "$program" "$@"
fi
