#!/bin/sh
# use_lld.sh PROGRAM [ARGUMENT...]: GCC's -wrapper, which runs each program that GCC calls. It has
# LLVM's linker take the place of GNU's: Debian's GCC for Windows knows one linker only, and passes
# over -fuse-ld.
case $1 in
    */collect2) ;;
    *) exec "$@" ;;
esac
shift
for argument; do
    shift
    case $argument in
        -plugin | -plugin-opt=* | */liblto_plugin.so) ;; # GNU's linker's own
        *) set -- "$@" "$argument" ;;
    esac
done
exec ld.lld-19 "$@"
