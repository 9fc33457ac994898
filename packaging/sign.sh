#!/usr/bin/env bash
# Signs each FILE in place (program, DLL, MSI or setup), as Windows expects of what it runs elevated.
#
#   sign.sh FILE...
#
# FINASET_SIGN_KEY is the PKCS #12 file with the certificate and its key, FINASET_SIGN_PASSWORD_FILE the
# file with its password, if it has one, and FINASET_SIGN_TIMESTAMP the address of a time-stamping
# service (RFC 3161), without which signatures end with the certificate.
set -euo pipefail
password=(-pass '')
[[ -z ${FINASET_SIGN_PASSWORD_FILE:-} ]] || password=(-readpass "$FINASET_SIGN_PASSWORD_FILE")
for file; do
    rm -f "$file.signed"
    if ! printed=$(osslsigncode sign -pkcs12 "$FINASET_SIGN_KEY" "${password[@]}" -h sha256 \
        -n "Tarsel Lumetra" ${FINASET_SIGN_TIMESTAMP:+-ts "$FINASET_SIGN_TIMESTAMP"} \
        -in "$file" -out "$file.signed" 2>&1); then
        printf '%s cannot be signed:\n%s\n' "$file" "$printed" >&2
        exit 1
    fi
    mv "$file.signed" "$file"
done
