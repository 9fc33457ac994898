#!/usr/bin/env bash
# Makes the kit that runs the tests on a Windows machine: DIRECTORY, and a zip of it beside it.
#
#   make.sh BIN DIRECTORY
set -euo pipefail
source_directory=$(readlink -f "$(dirname "$0")")
cd "$1"
bin=$PWD
cd - >/dev/null

rm -rf "$2" "$2.zip"
mkdir -p "$2"
cd "$2"
for file in Finaset.exe finaset-log.exe finaset-verify.exe windows_kit.exe "$bin"/*_tests.exe \
    "$bin"/stand_in_*.exe "$bin"/stand_in_*.dll "$bin"/finaset-actions.dll \
    "$bin"/Finaset-*.msi "$bin"/Finaset-*-setup.exe; do
    file=$bin/${file##*/}
    # The installers are not built where their tools are missing.
    [[ ! -e $file ]] || cp "$file" .
done
sed 's/$/\r/' "$source_directory/run-on-windows.cmd" >run-on-windows.cmd
name=${PWD##*/}
cd ..
cmake -E tar cf "$name.zip" --format=zip "$name"
