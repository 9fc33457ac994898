; An NSIS installer of a product that Finaset sets up: an example to copy. What you must change is
; marked "CHANGE". The product's files are stand-ins here, all in one directory:
;
;   makensis -DVERSION=1.0.0 -DPAYLOAD=DIRECTORY -DOUTPUT=setup.exe finaset.nsi
;
; Silent: "setup.exe /S", and "Uninstall.exe /S".

Target amd64-unicode  ; for a 32-bit one, system32 and the registry are redirected
SetCompressor /SOLID lzma
RequestExecutionLevel admin

; CHANGE: the names.
!define PRODUCT "Tarsel Lumetra"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Tarsel Lumetra"
!define DRIVER_DIRECTORY "$SYSDIR\drivers\Tarsel\ZEFIR"
!define PARAMETERS_KEY \
    "SYSTEM\CurrentControlSet\Services\Tarsel Nimbus Network Service\Parameters"

!ifdef SIGN  ; a script that signs the file
!finalize '"${SIGN}" "%1"' = 0
!uninstfinalize '"${SIGN}" "%1"' = 0
!endif

Name "${PRODUCT}"
OutFile "${OUTPUT}"
ShowInstDetails show
VIProductVersion "${VERSION}.0"
VIAddVersionKey ProductName "${PRODUCT}"
VIAddVersionKey ProductVersion "${VERSION}"
VIAddVersionKey FileVersion "${VERSION}"
VIAddVersionKey FileDescription "${PRODUCT} Setup"
VIAddVersionKey LegalCopyright ""

Page instfiles
UninstPage instfiles

; CHANGE: the product's services. Here one program stands in for all.
!macro ForEachService DO
    !insertmacro ${DO} "brisko network service x64"
    !insertmacro ${DO} "hvnetsvc"
    !insertmacro ${DO} "Corvo"
    !insertmacro ${DO} "TarselHubService"
    !insertmacro ${DO} "Tarsel Nimbus Network Service"
    !insertmacro ${DO} "Ardex"
    !insertmacro ${DO} "Tarsel Metrics Service"
    !insertmacro ${DO} "Tarsel Data Relay Service"
!macroend
!macro CreateService NAME
    Push "${NAME}"
    Call CreateService
!macroend
!macro DeleteService NAME
    nsExec::Exec '"$SYSDIR\sc.exe" delete "${NAME}"'
    Pop $0
!macroend

Function .onInit
    ; Finaset starts programs from its own directory elevated: only administrators may be able to
    ; write there, so neither a page nor /D= selects another directory.
    StrCpy $INSTDIR "$PROGRAMFILES64\Tarsel\Lumetra"
FunctionEnd

; An old service of that name may still be marked for deletion, while anyone has it open: retries for
; ten seconds.
Function CreateService
    Pop $1
    StrCpy $2 0
    again:
    nsExec::Exec '"$SYSDIR\sc.exe" create "$1" start= auto \
        binPath= "\"$INSTDIR\ProductService.exe\""'
    Pop $0
    StrCmp $0 0 created
    Sleep 500
    IntOp $2 $2 + 1
    IntCmp $2 20 0 again
    DetailPrint "The service $1 cannot be created: error $0"
    SetErrorLevel 2
    created:
FunctionEnd

Section
    ; Removes the older version first. With _?= its uninstaller runs in place, so that this one can
    ; wait for it, and leaves itself to be overwritten.
    ReadRegStr $0 HKLM "${UNINSTALL_KEY}" "UninstallString"
    StrCmp $0 "" removed
    ExecWait '$0 /S _?=$INSTDIR' $1
    StrCmp $1 0 removed
    DetailPrint "The older version cannot be removed: error $1"
    SetErrorLevel 2
    removed:

    ClearErrors

    SetOutPath "$INSTDIR"
    File "${PAYLOAD}/Finaset.exe"
    File "${PAYLOAD}/finaset-verify.exe"
    ; CHANGE: the product's programs. Finaset runs Unfinaset.exe if a machine cannot be secured.
    File "${PAYLOAD}/ZEFIR.exe"
    File "${PAYLOAD}/Quitline.exe"
    File "${PAYLOAD}/BriskoLU.exe"
    File "${PAYLOAD}/VxIdleTask.exe"
    File "${PAYLOAD}/Unfinaset.exe"
    File "${PAYLOAD}/ProductService.exe"
    File "${PAYLOAD}/ReleaseNotes-${VERSION}.txt"
    File "${PAYLOAD}/THIRD-PARTY-NOTICES.txt"  ; what the statically linked libraries ask for

    ; From here Finaset copies the configuration files to the product's data.
    SetOutPath "${DRIVER_DIRECTORY}"
    File "${PAYLOAD}/user.xml"
    File "${PAYLOAD}/oem.xml"
    File "${PAYLOAD}/vx.stg"
    SetOutPath "$INSTDIR"

    ; A silent installation skips a file that is in use.
    IfErrors 0 written
    DetailPrint "Not all files could be written."
    SetErrorLevel 2
    written:

    !insertmacro ForEachService CreateService
    WriteRegDWORD HKLM "${PARAMETERS_KEY}" "FirstRun" 1

    WriteUninstaller "$INSTDIR\Uninstall.exe"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Tarsel"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\Uninstall.exe"'
    WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\Uninstall.exe" /S'

    Call RunFinaset  ; the last step: what it starts needs everything else
SectionEnd

; The log goes to a file, through cmd, which removes the outer pair of quotes, and from there to the
; details. Not directly with nsExec::ExecToLog: the companion inherits standard output and keeps
; running, and would be left with a pipe that nobody reads. (Reading such a pipe to its end waits for
; the companion.) The details get a copy, since the companion has the file itself open.
; The exit code means nothing: it is always 0, and the log has the failures.
Function RunFinaset
    DetailPrint "Setting up the product..."
    nsExec::Exec '"$SYSDIR\cmd.exe" /s /c ""$INSTDIR\Finaset.exe" > "$INSTDIR\finaset.log" 2>&1 <nul"'
    Pop $0
    CopyFiles /SILENT "$INSTDIR\finaset.log" "$PLUGINSDIR"
    nsExec::ExecToLog '"$SYSDIR\cmd.exe" /s /c "type "$PLUGINSDIR\finaset.log""'
    Pop $0
FunctionEnd

Section Uninstall
    ; Nothing to be removed may still run. CHANGE: how to end the companion; it keeps the log open,
    ; too.
    nsExec::Exec '"$INSTDIR\Finaset.exe" /STOP'
    Pop $0
    nsExec::Exec '"$SYSDIR\taskkill.exe" /f /im BriskoLU.exe'
    Pop $0
    Sleep 1000  ; a terminated process releases its files a moment later
    !insertmacro ForEachService DeleteService

    ; Finaset registered the idle task, whose program goes.
    nsExec::Exec '"$SYSDIR\schtasks.exe" /delete /f /tn "VxIdle Task"'
    Pop $0
    DeleteRegKey HKLM "${UNINSTALL_KEY}"

    ; By name: a wildcard would delete other people's files. CHANGE: as above.
    Delete "$INSTDIR\Finaset.exe"
    Delete "$INSTDIR\finaset-verify.exe"
    Delete "$INSTDIR\finaset.log"
    Delete "$INSTDIR\ZEFIR.exe"
    Delete "$INSTDIR\Quitline.exe"
    Delete "$INSTDIR\BriskoLU.exe"
    Delete "$INSTDIR\VxIdleTask.exe"
    Delete "$INSTDIR\Unfinaset.exe"
    Delete "$INSTDIR\ProductService.exe"
    Delete "$INSTDIR\ReleaseNotes-${VERSION}.txt"
    Delete "$INSTDIR\THIRD-PARTY-NOTICES.txt"
    Delete "$INSTDIR\Uninstall.exe"
    RMDir "$INSTDIR"
    RMDir "$PROGRAMFILES64\Tarsel"
    Delete "${DRIVER_DIRECTORY}\user.xml"
    Delete "${DRIVER_DIRECTORY}\oem.xml"
    Delete "${DRIVER_DIRECTORY}\vx.stg"
    RMDir "${DRIVER_DIRECTORY}"
    RMDir "$SYSDIR\drivers\Tarsel"
SectionEnd
