#!/usr/bin/env bash
# Signs the installers, and all in them that is this project's, with a throwaway certificate, and verifies
# each signature.
#
#   signing_test.sh BUILD_DIRECTORY
set -euo pipefail
signed=$1/packaging/signed_installers
work=$(mktemp -d)
trap 'rm -rf "$work"; rm -f "$signed"/[Ff]inaset*' EXIT

echo 'a password' >"$work/password"
openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj '/CN=Nobody' \
    -addext extendedKeyUsage=codeSigning -keyout "$work/key" -out "$work/certificate" 2>/dev/null
openssl pkcs12 -export -inkey "$work/key" -in "$work/certificate" -passout "file:$work/password" \
    -out "$work/key.p12"
rm -f "$signed"/Finaset-*
if ! FINASET_SIGN_KEY=$work/key.p12 FINASET_SIGN_PASSWORD_FILE=$work/password FINASET_SIGN_TIMESTAMP='' \
    cmake --build "$1" --target signed_installers >"$work/log" 2>&1; then
    cat "$work/log"
    exit 1
fi

is_signed() {
    osslsigncode verify -in "$1" -CAfile "$work/certificate" >"$work/verified" 2>&1
}

failures=0
# expect DIRECTORY FILE...: each is there, and signed.
expect() {
    local directory=$1 file
    shift
    for file; do
        if [[ ! -e $directory/$file ]]; then
            echo "there is no $file in ${directory##*/}"
            failures=1
        elif ! is_signed "$directory/$file"; then
            echo "$file in ${directory##*/} is not signed:"
            cat "$work/verified"
            failures=1
        fi
    done
}

expect "$signed" Finaset.exe finaset-actions.dll finaset-log.exe finaset-verify.exe
cd "$signed"
expect "$signed" Finaset-*.msi Finaset-*-setup.exe
msiextract --directory "$work/msi" Finaset-*.msi >/dev/null
expect "$(dirname "$(find "$work/msi" -name Finaset.exe)")" Finaset.exe finaset-verify.exe
7z x -bd -o"$work/setup" Finaset-*-setup.exe >/dev/null
expect "$work/setup" Finaset.exe finaset-verify.exe Uninstall.exe
if is_signed "$1/bin/Finaset.exe"; then
    echo "what is not for the signed installers is signed, too"
    failures=1
fi
exit "$failures"
