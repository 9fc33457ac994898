@echo off
rem The program's steps with the system's own tools, as a batch file.
rem
rem   steps.cmd configure|all
rem
rem Access control lists of the data directories are omitted: on Wine, icacls does nothing.

set parameters=HKLM\SYSTEM\CurrentControlSet\Services\Tarsel Nimbus Network Service\Parameters
set program=%ProgramFiles%\Tarsel\Lumetra
set shipped=%SystemRoot%\system32\drivers\Tarsel\ZEFIR
set data=%ProgramData%\Tarsel
set configuration=%data%\Nimbus\ConfigurationFiles

if %1 == configure goto configure
net stop "brisko network service x64"
net stop hvnetsvc
net stop Corvo
net stop TarselHubService
net stop "Tarsel Nimbus Network Service"
net stop Ardex
net stop "Tarsel Metrics Service"
net stop "Tarsel Data Relay Service"

:configure
reg delete "%parameters%" /v ConfigFileDirectory /f
reg delete HKLM\SOFTWARE\Halvane\SAP /f
if not exist "%configuration%" mkdir "%configuration%"
if not exist "%data%\ImageCache" mkdir "%data%\ImageCache"
if not exist "%data%\Nimbus\ActivityLog" mkdir "%data%\Nimbus\ActivityLog"
if not exist "%configuration%\user.xml" copy "%shipped%\user.xml" "%configuration%\user.xml"
copy /y "%shipped%\oem.xml" "%configuration%\oem.xml"
copy /y "%shipped%\vx.stg" "%configuration%\vx.stg"
set bitmask=0
ipconfig /all | find /i "QZ311"
if not errorlevel 1 set bitmask=2
reg add HKLM\SOFTWARE\Tarsel\Nimbus /v Tarsel_HWConfig /t REG_DWORD /d %bitmask% /f
if %bitmask% == 2 reg add "%parameters%" /v MultiInterface_Enabled /t REG_DWORD /d 1 /f
schtasks /create /tn "VxIdle Task" /xml "%program%\task.xml" /f
schtasks /delete /tn "Tarsel Lumetra Startup Task" /f
reg add "%parameters%" /v FirstRun /t REG_DWORD /d 0 /f
if %1 == configure goto end

start "" "%program%\BriskoLU.exe" -u
net start Ardex
net start "Tarsel Metrics Service"
net start "Tarsel Nimbus Network Service"
net start "Tarsel Data Relay Service"
:end
