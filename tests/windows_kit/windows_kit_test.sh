#!/usr/bin/env bash
# Unzips the kit for a Windows machine, and runs its whole script on a Wine machine, with a few tests of
# each program.
#
#   windows_kit_test.sh PROGRAM...
#
# PROGRAM is one of the kit's; all are in one directory.
set -euo pipefail
source_directory=$(readlink -f "$(dirname "$0")/..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$source_directory/windows_kit/make.sh" "$(dirname "$1")" "$work/kit"
mkdir "$work/a place with blanks"
cd "$work/a place with blanks"
cmake -E tar xf ../kit.zip
cd kit

# What a person would type. Each start's output goes to N.txt and its exit code to ends.txt; report is
# kept as report-N.
cat >"$work/try.cmd" <<'CMD'
@echo off
cd /d "%~dp0a place with blanks\kit"
echo no>no.txt
echo y>yes.txt
rem Wine begins as an older Windows.
cmd /c run-on-windows.cmd /yes >1.txt
>>ends.txt echo %errorlevel%
reg add HKCU\Software\Wine /v Version /d win10 /f
reg add HKLM\SOFTWARE\Tarsel /f
cmd /c run-on-windows.cmd /yes >2.txt
>>ends.txt echo %errorlevel%
reg delete HKLM\SOFTWARE\Tarsel /f
cmd /c run-on-windows.cmd <no.txt >3.txt
>>ends.txt echo %errorlevel%
set GTEST_FILTER=CaseMapping.*:Machine.TheOptionStopOnlyStops:OnWindows*:RealRuns.*
cmd /c run-on-windows.cmd <yes.txt >4.txt
>>ends.txt echo %errorlevel%
ren report report-4
set GTEST_FILTER=CaseMapping.*:InstalledService.IsRemovedEvenIfItIsRunning
del stand_in_service.exe
cmd /c run-on-windows.cmd /YES no_such_tests unit_tests >5.txt
>>ends.txt echo %errorlevel%
ren report report-5
rem A failure ends the program.
set GTEST_BREAK_ON_FAILURE=1
cmd /c run-on-windows.cmd /yes unit_tests >6.txt
>>ends.txt echo %errorlevel%
ren report report-6
set GTEST_FILTER=
del machine_tests.exe
cmd /c run-on-windows.cmd /yes machine_tests >7.txt
>>ends.txt echo %errorlevel%
ren report report-7
CMD
sed -i 's/$/\r/' "$work/try.cmd"
"$source_directory/machine/fresh_machine.sh" "$work/try.cmd" >"$work/printed" 2>&1 || true

failures=0
# expect FILE TEXT: it contains such a line.
expect() {
    if ! grep -qE -- "$2" "$1"; then
        echo "$1 does not say: $2"
        failures=1
    fi
}
expect_file() {
    [[ -s $1 ]] || {
        echo "there is no $1"
        failures=1
    }
}

ends=$(tr -d '\r' <ends.txt | tr '\n' ' ') || ends=none
[[ $ends == '2 2 2 0 1 1 1 ' ]] || {
    echo "the script ended with $ends"
    failures=1
}
expect 1.txt '^This is Windows 6\.1\.[0-9]+\. The tests are for Windows 10'
expect 2.txt 'HKEY_LOCAL_MACHINE.SOFTWARE.Tarsel'
expect 3.txt 'disposable'
expect 3.txt 'Nothing was done'
for number in 1 2 3; do
    [[ ! -e report-$number ]] || failures=1
done

expect 4.txt 'unit_tests \.\.\. passed'
for program in machine verify_machine; do
    expect 4.txt "^${program}_tests \(as the system\) \.\.\. passed"
done
expect report-4/machine_tests.txt '^\[       OK \] Machine\.TheOptionStopOnlyStops'
expect report-4/summary.txt '^Windows 10\.0\.'
for program in unit sweep verify machine verify_machine windows installer adapter log log_reader; do
    [[ $program != installer || -e installer_tests.exe ]] || continue
    expect_file report-4/${program}_tests.xml
    expect report-4/summary.txt "^  ${program}_tests: [0-9]+ tests, 0 failed, [0-9]+ skipped"
done
expect report-4/summary.txt "Wine's event log stores nothing: OnWindows.TheEventLogHasTheEntries"
expect report-4/summary.txt '^Everything that was run has passed'
for run in first-installation reinstallation insecure-machine; do
    expect report-4/logs/$run.log 'FIRST RUN - FINISHED'
    [[ ! -e finaset-verify.exe ]] || expect_file report-4/logs/$run.verify.txt
done
if grep -q 'Left on this machine' report-4/summary.txt; then
    echo "something is left"
    failures=1
fi

expect 5.txt '^no_such_tests \.\.\. cannot be started'
expect report-5/summary.txt '^  no_such_tests: did not come to its end'
expect report-5/summary.txt '^  unit_tests: [0-9]+ tests, 1 failed'
expect report-5/summary.txt '^  InstalledService.IsRemovedEvenIfItIsRunning: '
expect report-5/summary.txt '^Not everything has passed'

test='InstalledService\.IsRemovedEvenIfItIsRunning'
expect 6.txt '^unit_tests \.\.\. failed'
expect report-6/summary.txt "^  unit_tests: did not come to its end in $test, see report.unit_tests\.txt"
expect report-6/summary.txt '^Not everything has passed'

expect 7.txt '^machine_tests \(as the system\) \.\.\. cannot be started'
[[ -e report-7/machine_tests.txt ]] || {
    echo "the service has not tried to start it"
    failures=1
}

if ((failures)); then
    tail -n 40 "$work/printed" -- *.txt report-*/summary.txt
fi
exit "$failures"
