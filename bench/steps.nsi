; The program's steps as a section of an installer: NSIS's own commands where it has them, the system's
; tools for the rest.
;
;   makensis -DOUTPUT=steps.exe steps.nsi
;   steps.exe configure|all
;
; Access control lists of the data directories are omitted: on Wine, icacls does nothing.

Target amd64-unicode
Name "Steps"
OutFile "${OUTPUT}"
RequestExecutionLevel admin
SilentInstall silent

!include FileFunc.nsh

!define PARAMETERS_KEY \
    "SYSTEM\CurrentControlSet\Services\Tarsel Nimbus Network Service\Parameters"
!define SHIPPED "$SYSDIR\drivers\Tarsel\ZEFIR"
!define CONFIGURATION "$APPDATA\Tarsel\Nimbus\ConfigurationFiles"

!macro Run COMMAND
    nsExec::Exec '${COMMAND}'
    Pop $0
!macroend

Section
    SetShellVarContext all
    StrCpy $3 "$PROGRAMFILES64\Tarsel\Lumetra"
    ${GetParameters} $2
    StrCmp $2 "all" 0 configure
    !insertmacro Run '"$SYSDIR\net.exe" stop "brisko network service x64"'
    !insertmacro Run '"$SYSDIR\net.exe" stop hvnetsvc'
    !insertmacro Run '"$SYSDIR\net.exe" stop Corvo'
    !insertmacro Run '"$SYSDIR\net.exe" stop TarselHubService'
    !insertmacro Run '"$SYSDIR\net.exe" stop "Tarsel Nimbus Network Service"'
    !insertmacro Run '"$SYSDIR\net.exe" stop Ardex'
    !insertmacro Run '"$SYSDIR\net.exe" stop "Tarsel Metrics Service"'
    !insertmacro Run '"$SYSDIR\net.exe" stop "Tarsel Data Relay Service"'

    configure:
    DeleteRegValue HKLM "${PARAMETERS_KEY}" "ConfigFileDirectory"
    DeleteRegKey HKLM "SOFTWARE\Halvane\SAP"
    CreateDirectory "${CONFIGURATION}"
    CreateDirectory "$APPDATA\Tarsel\ImageCache"
    CreateDirectory "$APPDATA\Tarsel\Nimbus\ActivityLog"
    IfFileExists "${CONFIGURATION}\user.xml" kept
    CopyFiles /SILENT "${SHIPPED}\user.xml" "${CONFIGURATION}"
    kept:
    CopyFiles /SILENT "${SHIPPED}\oem.xml" "${CONFIGURATION}"
    CopyFiles /SILENT "${SHIPPED}\vx.stg" "${CONFIGURATION}"
    !insertmacro Run '"$SYSDIR\cmd.exe" /c "ipconfig /all | find /i "QZ311""'
    StrCmp $0 0 0 absent
    WriteRegDWORD HKLM "SOFTWARE\Tarsel\Nimbus" "Tarsel_HWConfig" 2
    WriteRegDWORD HKLM "${PARAMETERS_KEY}" "MultiInterface_Enabled" 1
    Goto tasks
    absent:
    WriteRegDWORD HKLM "SOFTWARE\Tarsel\Nimbus" "Tarsel_HWConfig" 0
    tasks:
    !insertmacro Run '"$SYSDIR\schtasks.exe" /create /tn "VxIdle Task" /xml "$3\task.xml" /f'
    !insertmacro Run '"$SYSDIR\schtasks.exe" /delete /tn "Tarsel Lumetra Startup Task" /f'
    WriteRegDWORD HKLM "${PARAMETERS_KEY}" "FirstRun" 0
    StrCmp $2 "all" 0 end

    Exec '"$3\BriskoLU.exe" -u'
    !insertmacro Run '"$SYSDIR\net.exe" start Ardex'
    !insertmacro Run '"$SYSDIR\net.exe" start "Tarsel Metrics Service"'
    !insertmacro Run '"$SYSDIR\net.exe" start "Tarsel Nimbus Network Service"'
    !insertmacro Run '"$SYSDIR\net.exe" start "Tarsel Data Relay Service"'
    end:
SectionEnd
