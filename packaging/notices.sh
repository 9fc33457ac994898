#!/usr/bin/env bash
# Prints the notices of what others wrote in what ships: the copyright files of the Debian packages that
# it comes from, and the licenses to which these refer. Fails for a file that no package has.
#
#   notices.sh FILE...
#
# FILE is the link map of a program, *.map, or a file that becomes part of the setup.
set -euo pipefail
export LC_ALL=C

# Of a map, what was linked but not built here.
mapfile -t files < <(for file; do
    if [[ $file == *.map ]]; then
        sed -n 's|^LOAD /|/|p' "$file"
    else
        echo "$file"
    fi
done | xargs -d '\n' realpath -- | sort -u)
owners=$(dpkg-query --search "${files[@]}")

declare -A used # by each package
while read -r package file; do
    package=${package%%:*}
    used[$package]+=" ${file##*/}"
done <<<"$owners"

# Packages of the same sources may have the same text.
declare -A users # of each text, by its checksum
texts=()
for package in $(printf '%s\n' "${!used[@]}" | sort); do
    text=/usr/share/doc/$package/copyright
    sum=$(sha256sum <"$text")
    [[ ${users[$sum]:-} ]] || texts+=("$text")
    users[$sum]+=$(dpkg-query --show --showformat '${Package} ${Version}' "$package"):${used[$package]}$'\n'
done
mapfile -t licenses < <(grep -ohE '/usr/share/common-licenses/[A-Za-z0-9.-]*[A-Za-z0-9]' "${texts[@]}" |
    sort -u)

{
    echo "This product contains parts of the packages below, of which the named files were used."
    for text in "${texts[@]}"; do
        printf '\n%.0s' 1 2
        printf '=%.0s' {1..80}
        printf '\n%s\n' "${users[$(sha256sum <"$text")]}"
        cat "$text"
    done
    for license in "${licenses[@]}"; do
        printf '\n%.0s' 1 2
        printf '=%.0s' {1..80}
        printf '\n%s\n\n' "$license"
        cat "$license"
    done
} | sed 's/\r*$/\r/'
