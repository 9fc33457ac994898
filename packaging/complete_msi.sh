#!/usr/bin/env bash
# Adds to a package that wixl has built from finaset.wxs what wixl 0.101 drops or lacks. Run it in the
# directory of the package's files. It needs msibuild and msiinfo, of Debian's package msitools.
#
#   complete_msi.sh PACKAGE
set -euo pipefail
package=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

queries=()
# query SQL: one more statement for the package.
query() { queries+=(-q "$1"); }

# version_of FILE: its version, by its resources; nothing if it has none.
version_of() {
    local offset numbers
    x86_64-w64-mingw32-objcopy -O binary --only-section=.rsrc "$1" "$work/resources" 2>/dev/null ||
        return 0
    # The record of the version begins with this signature, and has the four numbers 8 bytes on.
    offset=$(LC_ALL=C grep -obUaP '\xBD\x04\xEF\xFE' "$work/resources" | head -n 1 | cut -d: -f1)
    [[ $offset ]] || return 0
    read -ra numbers < <(od -An -tu2 --endian=little -j $((offset + 8)) -N 8 "$work/resources")
    echo "${numbers[1]}.${numbers[0]}.${numbers[3]}.${numbers[2]}"
}

# The version of each file that has one. Without it, a file of any version on the disk would win; with
# it, Windows Installer expects no hash.
while IFS=$'\t' read -r file _ name _; do
    version=$(version_of "${name#*|}")
    if [[ $version ]]; then
        query "UPDATE File SET Version = '$version', Language = '1033' WHERE File = '$file'"
        query "DELETE FROM MsiFileHash WHERE File_ = '$file'"
    fi
done < <(msiinfo export "$package" File | tr -d '\r' | tail -n +4)

# Execute="rollback" and "commit": a function of a library, in the script, without impersonation, whose
# failure is ignored.
in_script=$((1 + 1024 + 2048 + 64))
for action in StopAgain ForgetTask StartAgain; do
    query "UPDATE CustomAction SET Type = $((in_script + 256)) WHERE Action = '$action'"
done
for action in RemoveTask RemoveLogs; do
    query "UPDATE CustomAction SET Type = $((in_script + 512)) WHERE Action = '$action'"
done

# MajorUpgrade: Schedule="afterInstallInitialize", AllowSameVersionUpgrades="yes"
query "UPDATE InstallExecuteSequence SET Sequence = 1501 WHERE Action = 'RemoveExistingProducts'"
upgrade=$(msiinfo export "$package" Upgrade | grep WIX_UPGRADE_DETECTED)
code=$(cut -f1 <<<"$upgrade") version=$(cut -f3 <<<"$upgrade")
query "DELETE FROM Upgrade WHERE ActionProperty = 'WIX_UPGRADE_DETECTED'"
query "INSERT INTO Upgrade (UpgradeCode, VersionMax, Attributes, ActionProperty) VALUES ('$code', '$version', $((1 + 512)), 'WIX_UPGRADE_DETECTED')"

# ServiceInstall: Vital="yes", with ErrorControl="normal"
query "UPDATE ServiceInstall SET ErrorControl = $((0x8000 + 1))"

# Component: Permanent="yes", with a value of the registry as its key path, in the 64-bit view;
# RegistryValue: Type="expandable"
for component in NimbusEvents CInstallEvents; do
    query "UPDATE Component SET Attributes = $((16 + 4 + 256)) WHERE Component = '$component'"
    query "UPDATE Registry SET Value = '#%%SystemRoot%\\System32\\EventCreate.exe' WHERE Component_ = '$component' AND Name = 'EventMessageFile'"
done

# Property: Secure="yes"
secure=$(msiinfo export "$package" Property | tr -d '\r' | sed -n 's/^SecureCustomProperties\t//p')
query "UPDATE Property SET Value = '$secure;FINASET_VERIFY;WINDOWSBUILD' WHERE Property = 'SecureCustomProperties'"

msibuild "$package" "${queries[@]}"
