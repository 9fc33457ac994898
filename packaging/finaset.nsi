; An NSIS installer of a product that Finaset sets up: an example to copy. What you must change is
; marked "CHANGE". The product's files are stand-ins here, all in one directory, which also has
; finaset-actions.dll:
;
;   makensis -DVERSION=1.0.0 -DPAYLOAD=DIRECTORY -DOUTPUT=setup.exe finaset.nsi
;
; Build it with NSIS 3.12 or later: earlier ones have known holes in setups that run as Local System.
;
; Silent: "setup.exe /S", and "Uninstall.exe /S". Both exit with code 0, or 2 if something failed. With
; "/LOG=FILE" their lines go to that file, too.

Target amd64-unicode  ; for a 32-bit one, system32 and the registry are redirected
SetCompressor /SOLID lzma
RequestExecutionLevel admin

!include FileFunc.nsh
!include LogicLib.nsh
!include WordFunc.nsh

; CHANGE: the names.
!define PRODUCT "Tarsel Lumetra"
!define WINDOW_TITLE "Tarsel${U+00AE} Lumetra"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Tarsel Lumetra"
!define DRIVER_DIRECTORY "$SYSDIR\drivers\Tarsel\ZEFIR"
!define DATA_DIRECTORY "$APPDATA\Tarsel"  ; in ProgramData, with the variables of all users
!define PARAMETERS_KEY \
    "SYSTEM\CurrentControlSet\Services\Tarsel Nimbus Network Service\Parameters"
!define EVENT_SOURCES "SYSTEM\CurrentControlSet\Services\EventLog\Application"
!define WINDOWS_KEY "SOFTWARE\Microsoft\Windows NT\CurrentVersion"
!define WINDOWS_10 10240

!ifdef SIGN  ; a script that signs the file
!finalize '"${SIGN}" "%1"' = 0
!uninstfinalize '"${SIGN}" "%1"' = 0
!endif

Name "${PRODUCT}"
OutFile "${OUTPUT}"
ShowInstDetails show
ShowUninstDetails show
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

; Do NAME ARGUMENT: an action of finaset-actions.dll, whose lines go to the details. $0 is 0 if it
; has succeeded.
!macro Do NAME ARGUMENT
    StrCpy $1 "${NAME}"
    StrCpy $2 "${ARGUMENT}"
!ifdef __UNINSTALL__
    Call un.Do
!else
    Call Do
!endif
!macroend

; What the setup and the uninstaller share. NSIS wants each function twice, the uninstaller's with the
; prefix "un.".
Var LogFile
!macro SharedFunctions UN
Function ${UN}Begin
    SetShellVarContext all
    ${GetParameters} $0
    ${GetOptions} $0 "/LOG=" $LogFile
    UserInfo::GetAccountType
    Pop $0
    ${If} $0 != "Admin"
        StrCpy $2 "${PRODUCT} needs an administrator's rights."
        Call ${UN}Refuse
    ${EndIf}
    ; Programs that run elevated must not find anything where their user says.
    System::Call 'kernel32::SetEnvironmentVariableW(w "ProgramData", w "$APPDATA")'
    System::Call 'kernel32::SetEnvironmentVariableW(w "SystemRoot", w "$WINDIR")'
    System::Call 'kernel32::SetEnvironmentVariableW(w "Path", w "$SYSDIR;$WINDIR")'
    InitPluginsDir
    SetDateSave off  ; the uninstaller would contain the time of the build
    File "/oname=$PLUGINSDIR\finaset-actions.dll" "${PAYLOAD}/finaset-actions.dll"
    SetDateSave on
FunctionEnd

; Says $2.
Function ${UN}Say
    DetailPrint $2
    ${If} $LogFile != ""
        FileOpen $R3 $LogFile a
        FileSeek $R3 0 END
        FileWriteUTF16LE /BOM $R3 "$2$\r$\n"
        FileClose $R3
    ${EndIf}
FunctionEnd

; Says $2, and ends before anything is changed.
Function ${UN}Refuse
    Call ${UN}Say
    MessageBox MB_OK|MB_ICONSTOP "$2" /SD IDOK
    SetErrorLevel 2
    Quit
FunctionEnd

; Says $2, and ends here.
Function ${UN}GiveUp
    Call ${UN}Say
    SetErrorLevel 2
    Abort
FunctionEnd

Function ${UN}Do
    System::Call '$PLUGINSDIR\finaset-actions.dll::RunAction(w r1, w r2) i .r0'
    ${Do}
        System::Call '$PLUGINSDIR\finaset-actions.dll::NextLine(w .r2) i .r1'
        ${If} $1 = 0
            ${Break}
        ${EndIf}
        Call ${UN}Say
    ${Loop}
    ; Nothing more comes; this call unloads the library, which could not be deleted otherwise.
    System::Call '$PLUGINSDIR\finaset-actions.dll::NextLine(w .r2) i .r1 ?u'
FunctionEnd

; Only Local System can start the helper as the application's user, which Finaset does. An
; administrator reaches the application in his own session. Sets the error flag if it still runs.
; CHANGE: how to ask the application to quit.
Function ${UN}StopProduct
    FindWindow $0 "" "${WINDOW_TITLE}"
    ${If} $0 <> 0
        nsExec::Exec /TIMEOUT=10000 '"$INSTDIR\Quitline.exe" ${WINDOW_TITLE}'
        Pop $0
    ${EndIf}
    !insertmacro Do StopProduct "$INSTDIR"
    ClearErrors
    ${If} ${FileExists} "$INSTDIR\ZEFIR.exe"
        FileOpen $0 "$INSTDIR\ZEFIR.exe" a  ; not that of a running program
        FileClose $0
    ${EndIf}
FunctionEnd

; All but the logs. Files by name: a wildcard would delete other people's. CHANGE: as below.
Function ${UN}RemoveProduct
    !insertmacro ForEachService DeleteService
    !insertmacro Do RemoveTask ""  ; Finaset registered it, and its program goes
    Delete "$INSTDIR\Finaset.exe"
    Delete "$INSTDIR\finaset-verify.exe"
    Delete "$INSTDIR\ZEFIR.exe"
    Delete "$INSTDIR\Quitline.exe"
    Delete "$INSTDIR\BriskoLU.exe"
    Delete "$INSTDIR\VxIdleTask.exe"
    Delete "$INSTDIR\Unfinaset.exe"
    Delete "$INSTDIR\ProductService.exe"
    Delete "$INSTDIR\ReleaseNotes-${VERSION}.txt"
    Delete "$INSTDIR\THIRD-PARTY-NOTICES.txt"
    Delete "$INSTDIR\Uninstall.exe"
    Delete "${DRIVER_DIRECTORY}\user.xml"
    Delete "${DRIVER_DIRECTORY}\oem.xml"
    Delete "${DRIVER_DIRECTORY}\vx.stg"
    RMDir "${DRIVER_DIRECTORY}"
    RMDir "$SYSDIR\drivers\Tarsel"
    DeleteRegKey HKLM "${UNINSTALL_KEY}"
FunctionEnd
!macroend
!insertmacro SharedFunctions ""

Function .onInit
    Call Begin
    ; Finaset starts programs from its own directory elevated: only administrators may be able to
    ; write there, so neither a page nor /D= selects another directory.
    StrCpy $INSTDIR "$PROGRAMFILES64\Tarsel\Lumetra"

    ; A 64-bit setup does not start on a 32-bit system.
    ReadRegStr $1 HKLM "${WINDOWS_KEY}" "CurrentBuildNumber"
    ${If} $1 < ${WINDOWS_10}
        StrCpy $2 "${PRODUCT} needs Windows 10, Windows Server 2016 or a later one."
        Call Refuse
    ${EndIf}
    ReadRegStr $1 HKLM "${UNINSTALL_KEY}" "DisplayVersion"
    ${VersionCompare} "$1" "${VERSION}" $2
    ${If} $2 = 1
        StrCpy $2 "A later version of ${PRODUCT} is installed already."
        Call Refuse
    ${EndIf}
FunctionEnd

; An old service of that name may still be marked for deletion, while anyone has it open: retries for
; ten seconds. Sets the error flag if it cannot be created.
Function CreateService
    Pop $1
    ${For} $2 1 20
        nsExec::Exec '"$SYSDIR\sc.exe" create "$1" start= auto \
            binPath= "\"$INSTDIR\ProductService.exe\""'
        Pop $0
        ${If} $0 == 0
            Return
        ${EndIf}
        Sleep 500
    ${Next}
    StrCpy $2 "The service $1 cannot be created: error $0"
    Call Say
    SetErrors
FunctionEnd

; The event viewer's description of an event is its text alone, in this message file of the system.
!macro EventSource NAME
    WriteRegExpandStr HKLM "${EVENT_SOURCES}\${NAME}" "EventMessageFile" \
        "%SystemRoot%\System32\EventCreate.exe"
    WriteRegDWORD HKLM "${EVENT_SOURCES}\${NAME}" "TypesSupported" 7
!macroend

; Leaves nothing but the logs, says $R0, and gives up.
Function Fail
    Call StopProduct
    Call RemoveProduct
    StrCpy $2 "$R0 The installation is undone."
    Call GiveUp
FunctionEnd

Section
    ; Before anything is changed: nobody else may have a hand in the product's data.
    !insertmacro Do SecureDirectory "${DATA_DIRECTORY}"
    ${If} $0 <> 0
        StrCpy $2 "The directory of the product's data cannot be secured."
        Call GiveUp
    ${EndIf}

    ; Removes the older version first. With _?= its uninstaller runs in place, so that this one can
    ; wait for it, and leaves itself to be overwritten. If it cannot remove it, it changes nothing.
    ReadRegStr $3 HKLM "${UNINSTALL_KEY}" "UninstallString"
    ${If} $3 != ""
        ExecWait '$3 /S /LOG="$LogFile" _?=$INSTDIR' $0
    ${Else}
        Call StopProduct  ; what a setup has left that did not come to its end
        StrCpy $0 0
        ${IfThen} ${Errors} ${|} StrCpy $0 2 ${|}
    ${EndIf}
    ${If} $0 <> 0
        StrCpy $2 "The older version cannot be removed: error $0"
        Call GiveUp
    ${EndIf}

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

    !insertmacro ForEachService CreateService
    WriteRegDWORD HKLM "${PARAMETERS_KEY}" "FirstRun" 1
    !insertmacro EventSource "Tarsel Nimbus Network Service"
    !insertmacro EventSource "Tarsel Nimbus CInstall"

    WriteUninstaller "$INSTDIR\Uninstall.exe"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\ZEFIR.exe"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Tarsel"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "HelpLink" "https://example.com/support"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "URLInfoAbout" "https://example.com/"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\Uninstall.exe"'
    WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\Uninstall.exe" /S'
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
    ; A silent installation skips a file that is in use.
    ${If} ${Errors}
        StrCpy $R0 "Not everything could be written."
        Call Fail
    ${EndIf}
    ${GetSize} "$INSTDIR" "/S=0K" $0 $1 $2  ; clears the error flag
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" $0

    ; The last step: what it starts needs everything else.
    !insertmacro Do RunFinaset "$INSTDIR"
    ${If} $0 <> 0
        StrCpy $R0 "Finaset was not run."
        Call Fail
    ${EndIf}
    ; An insecure machine must not keep the product. "/VERIFY=0" keeps it all the same.
    ${GetParameters} $0
    ${GetOptions} $0 "/VERIFY=" $1
    ${If} $1 != "0"
        !insertmacro Do VerifyMachine "$INSTDIR"
        ${If} $0 <> 0
            StrCpy $R0 "The machine is not configured as it should be."
            Call Fail
        ${EndIf}
    ${EndIf}
SectionEnd

!insertmacro SharedFunctions "un."

Function un.onInit
    Call un.Begin
FunctionEnd

Section Uninstall
    ; Nothing to be removed may still run.
    Call un.StopProduct
    ${If} ${Errors}
        !insertmacro Do StartProduct "$INSTDIR"
        StrCpy $2 "The product cannot be stopped, and stays installed."
        Call un.GiveUp
    ${EndIf}
    Call un.RemoveProduct
    !insertmacro Do RemoveLogs "$INSTDIR"  ; and the directory
SectionEnd
