#!/usr/bin/env bash
# Tests that each library in the link map of each shipped program has its notice, and so has the setup's
# own code.
#
#   notices_test.sh NOTICES READER_MAP MAP...
#
# NOTICES are those that the installers install, for the programs of each MAP. READER_MAP is that of the
# log reader for Linux.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failures=0
# expect FILE NAME TEXT...: FILE contains these, of which NAME has need.
expect() {
    local file=$1 name=$2 text
    shift 2
    for text; do
        if ! grep -qF -- "$text" "$file"; then
            echo "${file##*/} does not say, as $name asks for: $text"
            failures=1
        fi
    done
}

# check FILE MAP: FILE has what is asked for by what was linked.
check() {
    local libraries library
    libraries=$(grep -oE '^(LOAD )?/[^() ]+\.(a|o)\b' "$2" | sed 's|.*/||' | sort -u)
    [[ $libraries ]] || {
        echo "no library is linked, says ${2##*/}"
        failures=1
    }
    for library in $libraries; do
        # The file names what it is about, and the words are no other package's.
        expect "$1" "${2##*/}" " $library"
        case $library in
            libstdc++.a | libgcc.a | libgcc_eh.a | crtbegin*.o | crtend*.o)
                expect "$1" "$library" 'GCC RUNTIME LIBRARY EXCEPTION' 'GNU GENERAL PUBLIC LICENSE'
                ;;
            libc.a | libm.a | libm-*.a | libmvec.a | crt1.o | crti.o | crtn.o)
                expect "$1" "$library" 'Debian prepackaged version of the GNU C Library' \
                    'GNU LESSER GENERAL PUBLIC LICENSE'
                ;;
            libpthread.a) expect "$1" "$library" 'Copyright: 2010 Lockless Inc.' ;;
            libmingwex.a) expect "$1" "$library" 'LUCENT DISCLAIMS ALL WARRANTIES' ;;
            libmingw32.a | libmsvcrt.a | libmoldname.a | crt2*.o | dllcrt2.o | lib*32.a | libuuid.a | libwinspool.a)
                expect "$1" "$library" 'the mingw-w64 project' 'Redistributions in binary form'
                ;;
            *)
                echo "what does $library ask for? Say it here."
                failures=1
                ;;
        esac
    done
}

notices=$1
"$(dirname "$0")/../packaging/notices.sh" "$2" >"$work/reader"
check "$work/reader" "$2"
shift 2
for map; do
    check "$notices" "$map"
done
expect "$notices" "the setup" 'LZMA compression module' 'The zlib License'

exit "$failures"
