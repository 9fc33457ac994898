#!/usr/bin/env bash
# Reads the tables of the built package: what wixl drops without a word, and what no installation on Wine
# shows. Each check is also made on a spoiled copy, where it must fail.
#
#   msi_tables_test.sh PACKAGE PAYLOAD_DIRECTORY
# shellcheck disable=SC2317  # check calls the functions
set -euo pipefail
original=$(readlink -f "$1")
payload=$(readlink -f "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" # the export of a table with streams writes files

# rows TABLE [COLUMNS]: of the package to be read, without the headings.
rows() {
    msiinfo export "$package" "$1" | tr -d '\r' | tail -n +4 | cut -f "${2:-1-}"
}

# has TABLE COLUMNS: these are rows of it, among others; standard input has them, with blanks for tabs.
has() {
    rows "$1" "$2" | tr '\t' ' ' >"$work/rows"
    local row
    while IFS= read -r row; do
        grep -qxF -e "$row" "$work/rows" || {
            echo "$1 has not: $row" && return 1
        }
    done
}

failed=0
# check SQL COMMAND...: succeeds, but not on a copy that the SQL has spoiled.
check() {
    package=$original
    if "${@:2}" >"$work/printed" 2>&1; then
        echo "ok: ${*:2}"
    else
        echo "FAILED: ${*:2}"
        cat "$work/printed"
        failed=1
    fi
    package=$work/spoiled.msi
    cp "$original" "$package"
    msibuild "$package" -q "$1"
    if "${@:2}" >/dev/null 2>&1; then
        echo "FAILED: does not see $1"
        failed=1
    fi
}

# By the text in its resources, not by the numbers from which the package got it.
each_file_has_its_version() {
    local file name version text versioned=
    while IFS=$'\x1f' read -r file name version; do
        text=$(strings -e l "$payload/${name#*|}" | sed -n '/^FileVersion$/{n;p;q}')
        [[ $version == "${text:+$text.0}" ]] || {
            echo "$file: $version, not $text" && return 1
        }
        [[ -z $text ]] || versioned=1
    done < <(rows File 1,3,5 | tr '\t' '\037')
    [[ $versioned ]]
}
check "UPDATE File SET Version = '' WHERE File = 'Finaset.exe'" each_file_has_its_version
check "UPDATE File SET Version = '1.0.0.0' WHERE File = 'user.xml'" each_file_has_its_version

only_files_without_a_version_have_a_hash() {
    diff <(rows File 1,5 | awk -F '\t' '$2 == "" { print $1 }' | sort) <(rows MsiFileHash 1 | sort)
}
check "DELETE FROM MsiFileHash WHERE File_ = 'user.xml'" only_files_without_a_version_have_a_hash
check "UPDATE File SET Version = '' WHERE File = 'Finaset.exe'" \
    only_files_without_a_version_have_a_hash

each_file_is_the_key_path_of_a_component_of_its_own() {
    diff <(rows File 1,2 | awk -F '\t' '{ print $2 "\t" $1 }' | sort) <(rows Component 1,6 | grep -vP '\t(reg[0-9A-F]{32})?$' | sort)
}
check "UPDATE File SET Component_ = 'ZEFIR.exe' WHERE File = 'Quitline.exe'" \
    each_file_is_the_key_path_of_a_component_of_its_own
check "UPDATE Component SET KeyPath = '' WHERE Component = 'Finaset.exe'" \
    each_file_is_the_key_path_of_a_component_of_its_own

each_component_is_for_64_bits_and_in_the_feature() {
    [[ ! $(rows Component 4 | awk '$1 % 512 < 256') ]] &&
        diff <(rows Component 1 | sort) <(rows FeatureComponents 2 | sort)
}
check "UPDATE Component SET Attributes = 0 WHERE Component = 'Finaset.exe'" \
    each_component_is_for_64_bits_and_in_the_feature
check "DELETE FROM FeatureComponents WHERE Component_ = 'Finaset.exe'" \
    each_component_is_for_64_bits_and_in_the_feature

# 1: of a library; 1024: in the script; 2048: as Local System; 64: its failure is ignored; 256: on a
# rollback; 512: at the end.
the_actions_run_where_and_as_they_must() {
    has CustomAction 1-4 <<'ROWS' && has InstallExecuteSequence 1-3 <<'ROWS2'
StartAgain 3393 Actions StartProduct
RemoveTask 3649 Actions RemoveTask
RemoveLogs 3649 Actions RemoveLogs
Stop 3137 Actions StopProduct
SecureData 3073 Actions SecureDirectory
ForgetTask 3393 Actions RemoveTask
StopAgain 3393 Actions StopProduct
Finaset 3073 Actions RunFinaset
Verify 3073 Actions VerifyMachine
ROWS
InstallInitialize  1500
RemoveExistingProducts  1501
StartAgain Installed 1510
RemoveTask REMOVE="ALL" AND NOT UPGRADINGPRODUCTCODE 1511
RemoveLogs REMOVE="ALL" AND NOT UPGRADINGPRODUCTCODE 1512
Stop  1520
StopServices VersionNT 1900
InstallServices VersionNT 5800
SecureData NOT REMOVE 6510
ForgetTask NOT (REMOVE OR Installed OR WIX_UPGRADE_DETECTED) 6520
StopAgain NOT REMOVE 6530
Finaset NOT REMOVE 6540
Verify NOT REMOVE AND FINASET_VERIFY <> "0" 6550
InstallFinalize  6600
ROWS2
}
check "UPDATE CustomAction SET Type = 3137 WHERE Action = 'StopAgain'" \
    the_actions_run_where_and_as_they_must
check "UPDATE CustomAction SET Type = 3137 WHERE Action = 'Finaset'" \
    the_actions_run_where_and_as_they_must
check "UPDATE InstallExecuteSequence SET Sequence = 1401 WHERE Action = 'RemoveExistingProducts'" \
    the_actions_run_where_and_as_they_must

# Windows Installer does not allow anything in the script before it.
nothing_comes_before_the_removal_of_an_older_version() {
    [[ $(rows InstallExecuteSequence 1,3 | awk -F '\t' '$2 > 1500 && $2 <= 1501 { print $1 }') == \
        RemoveExistingProducts ]]
}
check "UPDATE InstallExecuteSequence SET Sequence = 1501 WHERE Action = 'StartAgain'" \
    nothing_comes_before_the_removal_of_an_older_version

# An action's argument, and that nothing runs by a command line.
each_action_of_the_library_gets_its_argument() {
    has CustomAction 1-4 <<'ROWS' && ! rows CustomAction 2 | grep -qvxE '2099|3[0-9]{3}' &&
SetSecureData 2099 SecureData [CommonAppDataFolder]Tarsel
SetFinaset 2099 Finaset [InstallDir]
SetVerify 2099 Verify [InstallDir]
SetStop 2099 Stop [InstallDir]
SetStopAgain 2099 StopAgain [InstallDir]
SetStartAgain 2099 StartAgain [InstallDir]
SetRemoveLogs 2099 RemoveLogs [InstallDir]
ROWS
        [[ ! $(rows CustomAction 2,3 | awk '$1 != 2099 && $2 != "Actions"') ]] &&
        [[ $(rows InstallExecuteSequence 1 | grep -c '^Set') == 8 ]]
}
check "UPDATE CustomAction SET Target = '[TempFolder]' WHERE Action = 'SetFinaset'" \
    each_action_of_the_library_gets_its_argument
check "UPDATE CustomAction SET Source = 'cmd' WHERE Action = 'Stop'" \
    each_action_of_the_library_gets_its_argument
check "DELETE FROM InstallExecuteSequence WHERE Action = 'SetStop'" \
    each_action_of_the_library_gets_its_argument

the_library_is_the_built_one() {
    has Binary 1 <<<Actions &&
        msiinfo extract "$package" Binary.Actions | cmp - "$payload/finaset-actions.dll"
}
check "DELETE FROM Binary WHERE Name = 'Actions'" the_library_is_the_built_one

# 32768: one that cannot be installed fails the installation; 2 and 32: stopped by both, 128: deleted
each_service_is_vital_and_stopped_by_both() {
    [[ $(rows ServiceInstall 4-6 | sort -u) == 16$'\t'2$'\t'32769 ]] &&
        [[ $(rows ServiceControl 3,5 | sort -u) == 162$'\t'1 ]] &&
        diff <(rows ServiceInstall 2 | sort) <(rows ServiceControl 2 | sort)
}
check "UPDATE ServiceInstall SET ErrorControl = 1 WHERE Name = 'Corvo'" \
    each_service_is_vital_and_stopped_by_both
check "UPDATE ServiceControl SET Event = 160 WHERE Name = 'Corvo'" \
    each_service_is_vital_and_stopped_by_both
check "DELETE FROM ServiceControl WHERE Name = 'Corvo'" each_service_is_vital_and_stopped_by_both

# "#%": a text with variables; "#": a number. 276: 64 bits, permanent, a value as key path.
the_sources_of_events_are_registered_for_good() {
    local source
    for source in 'Network Service:NimbusEvents' 'CInstall:CInstallEvents'; do
        local key="SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Tarsel Nimbus ${source%:*}"
        has Registry 2-6 <<ROWS || return 1
2 $key EventMessageFile #%%SystemRoot%\\System32\\EventCreate.exe ${source#*:}
2 $key TypesSupported #7 ${source#*:}
ROWS
        has Component 1,4 <<<"${source#*:} 276" || return 1
        [[ $(rows Component 1,6 | sed -n "s/^${source#*:}\t//p") == \
            $(rows Registry 1,4,6 | sed -n "s/\tEventMessageFile\t${source#*:}$//p") ]] || return 1
    done
}
check "UPDATE Component SET Attributes = 260 WHERE Component = 'NimbusEvents'" \
    the_sources_of_events_are_registered_for_good
check "UPDATE Registry SET Value = '#%SystemRoot%\\System32\\EventCreate.exe' WHERE Component_ = 'CInstallEvents' AND Name = 'EventMessageFile'" \
    the_sources_of_events_are_registered_for_good
check "UPDATE Registry SET Value = '7' WHERE Component_ = 'NimbusEvents' AND Name = 'TypesSupported'" \
    the_sources_of_events_are_registered_for_good

the_properties_are_set() {
    local secure
    secure=$(rows Property | sed -n 's/^SecureCustomProperties\t//p')
    has Property 1,2 <<'ROWS' && [[ ";$secure;" == *';FINASET_VERIFY;'* ]]
ALLUSERS 1
REBOOT ReallySuppress
MSIRESTARTMANAGERCONTROL Disable
FINASET_VERIFY 1
ARPNOMODIFY 1
ROWS
}
check "UPDATE Property SET Value = 'Force' WHERE Property = 'REBOOT'" the_properties_are_set
check "UPDATE Property SET Value = 'A;B' WHERE Property = 'SecureCustomProperties'" \
    the_properties_are_set

# 512: up to and including this version; 2: only found.
the_same_version_is_replaced_and_a_later_one_is_not() {
    local version
    version=$(rows Property | sed -n 's/^ProductVersion\t//p')
    diff <(rows Upgrade 2-7 | tr '\t' ' ' | sort) - <<ROWS
 $version  513  WIX_UPGRADE_DETECTED
$version   2  WIX_DOWNGRADE_DETECTED
ROWS
}
check "DELETE FROM Upgrade WHERE ActionProperty = 'WIX_UPGRADE_DETECTED'" \
    the_same_version_is_replaced_and_a_later_one_is_not

# 18: the value itself, in the 64-bit view
an_older_windows_is_refused() {
    has LaunchCondition 1 <<<'Installed OR (VersionNT64 AND WINDOWSBUILD >= 10240)' &&
        has LaunchCondition 1 <<<'NOT WIX_DOWNGRADE_DETECTED' &&
        has AppSearch 1,2 <<<'WINDOWSBUILD WindowsBuild' &&
        has RegLocator 1-5 <<'ROWS'
WindowsBuild 2 SOFTWARE\Microsoft\Windows NT\CurrentVersion CurrentBuildNumber 18
ROWS
}
check "UPDATE RegLocator SET Type = 2" an_older_windows_is_refused

exit "$failed"
