#!/usr/bin/env bash
# Runs a Windows program on a Windows machine of its own: a fresh Wine prefix without display and
# network, whose service manager and registry nobody else uses. Ends with the program's exit code,
# after the machine is taken down. Any number of machines can run side by side. The first one sets up
# a machine in build/machine, which is never started; all are copies of it.
#
#   fresh_machine.sh PROGRAM [ARGUMENT...]
#
# With FINASET_KEEP_MACHINE=DIRECTORY the machine is built there and left as it is. Any other is taken
# down after FINASET_MACHINE_LIMIT seconds, with exit code 124 if the program has not ended by then.
#
# With FINASET_FILES=DIRECTORY that becomes the machine's C:\files, and goes when the machine goes.
#
# The machine's network adapters are those at the ends of the cables in FINASET_ADAPTERS, "NAME:NAME
# ...", with names of 15 bytes at the most, and the loopback. Where the computer does not allow that,
# the machine has the computer's own adapters, and FINASET_ADAPTERS is not set for the program.
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

# Less than CTest waits for, since what CTest ends leaves its machine behind.
limit=${FINASET_MACHINE_LIMIT:-270}

wine=(/usr/lib/wine/wine64)
wineserver=/usr/lib/wine/wineserver64

# Linux puts a program's heap anywhere in the gigabyte behind Wine's loader, and in that gigabyte is the
# page that Windows shares with each process: one process in 8,000 could not be started.
if setarch --addr-no-randomize true 2>/dev/null; then
    wine=(setarch --addr-no-randomize "${wine[@]}")
fi

machine=${FINASET_KEEP_MACHINE:-$(mktemp -d "${TMPDIR:-/tmp}/finaset-machine.XXXXXX")}
mkdir -p "$machine"

take_down() {
    "$wineserver" -k || true # it may have ended already
    "$wineserver" -w
    rm -rf "$machine"
}
if [[ -z ${FINASET_KEEP_MACHINE:-} ]]; then
    trap take_down EXIT
    trap 'exit 130' HUP INT TERM
fi

# The machine is not to see, nor to link to, anything of the person who runs it, and to leave nothing.
export HOME=$machine TMPDIR=$machine WINEPREFIX=$machine/prefix LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY
export WINEDEBUG=${WINEDEBUG:--all}
# Nothing to install, no menus, no debugger, which would keep a program that has crashed waiting, and
# no USB, whose driver has a thread that can outlive the machine.
export WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe,winedbg.exe,wineusb.sys=d'

# set_up ARGUMENT...: runs one of Wine's own programs, and shows what it said if it fails.
set_up() {
    "${wine[@]}" "$@" >"$machine/set-up.log" 2>&1 </dev/null || {
        cat "$machine/set-up.log" >&2
        echo "the machine cannot be set up; free there:" \
            "$(df --human-readable --output=avail "$machine" | tail -n 1)" >&2
        exit 1
    }
}

# Setting one up takes seconds, a copy a fraction of one. It is good for this Wine and this script.
build=$(readlink -f "$(dirname "$0")/../../build")
original=$build/machine
state="$(dpkg-query -W wine64) $(md5sum <"$0")"
mkdir -p "$build"
exec {lock}>"$build/machine.lock"
flock "$lock"
if [[ $(cat "$original/state" 2>/dev/null) != "$state" ]]; then
    rm -rf "$original"
    mkdir "$original" "$WINEPREFIX"
    set_up wineboot -i
    set_up reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
    "$wineserver" -w
    # Links to the home of this machine, which the copies have not.
    find "$WINEPREFIX/drive_c/users" -type l -exec rm {} \; -exec mkdir {} \;
    mv "$WINEPREFIX/drive_c/windows/system32" "$original/"
    mv "$WINEPREFIX" "$original/"
    echo "$state" >"$original/state"
fi
exec {lock}>&-
cp -a "$original/prefix" "$machine/"
# The system's own files, half a gigabyte, are never written to: second names of them will do.
cp -a --link "$original/system32" "$WINEPREFIX/drive_c/windows/"

if [[ -n ${FINASET_FILES:-} ]]; then
    mv "$FINASET_FILES" "$WINEPREFIX/drive_c/files"
fi

# On the machine's own drive: from anywhere else, a path that begins with a backslash would lead to
# the root of the computer that the machine runs on.
program=$(readlink -f "$1")
shift
cd "$WINEPREFIX/drive_c"

if [[ -n ${FINASET_KEEP_MACHINE:-} ]]; then
    # Out of reach of the hang-up that ends what a terminal leaves behind.
    setsid --wait "${wine[@]}" "$program" "$@"
else
    left=$((limit - SECONDS))
    timeout --kill-after=5 $((left > 0 ? left : 1)) "${wine[@]}" "$program" "$@"
fi
