#!/bin/sh
# use_clang.sh GCC ARGUMENT...: a compiler launcher for CMake. Clang compiles in the place of GCC for
# Windows, with its library.
shift
for argument; do
    # It would read the precompiled header that it is about to replace.
    case $argument in
        *.gch) rm -f "$argument" ;;
    esac
done
exec clang++-19 --target=x86_64-w64-mingw32 -femulated-tls -Xclang -fpch-instantiate-templates "$@"
