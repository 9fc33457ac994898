@echo off
rem Runs the tests of Finaset on this machine, which must be disposable, and leaves their results in
rem the folder "report" beside this file.
rem
rem   run-on-windows.cmd [/yes] [PROGRAM...]
rem
rem /yes does not ask. PROGRAM is one of the test programs here, without ".exe"; by default, all of
rem them. Exits with code 0 if everything passed or was skipped, 1 if something failed, 2 if nothing
rem was run.
setlocal
cd /d "%~dp0"

set asked=
set programs=
:arguments
if "%~1"=="" goto arguments_end
if /i "%~1"=="/yes" (
    set asked=yes
) else (
    set programs=%programs% %1
)
shift
goto arguments
:arguments_end
if not defined programs set programs=unit_tests sweep_tests verify_tests machine_tests verify_machine_tests windows_tests installer_tests adapter_tests log_tests log_reader_tests

windows_kit.exe check
if errorlevel 1 exit /b 2

if defined asked goto run
echo These tests install and remove services, programs, settings, files and scheduled tasks. Run
echo them only on a disposable machine, ideally a virtual one with a snapshot.
set answer=
set /p answer=Run them here? [y/n] 
if /i "%answer%"=="y" goto run
echo Nothing was done.
exit /b 2

:run
if exist report rmdir /s /q report
mkdir report
set FINASET_REPORT=%CD%\report
set FINASET_LOG=finaset-log.exe
for %%p in (%programs%) do windows_kit.exe run %%p
windows_kit.exe summary %programs%
exit /b %errorlevel%
