; Setup program of Kestrune, for the user who runs it and without administrator rights.
;
; It lays the package beside an older one, lets the program itself register, and only then takes the
; older one's place; a set-up that fails leaves what was there before. Its exit code is the program's:
;   0 done                        20 no Altium Designer found, nothing installed
;   1 cancelled by the user       30 an Altium Designer is running, nothing changed
;   2 the file is damaged         40 at least one Altium Designer was skipped or failed
;  50 files cannot be written    51 another set-up of Kestrune is running
;
; Defined by tools/make-setup: VERSION, VERSION4, PAYLOAD (folder), SIZE_KB, PUBLISHER, ICON, OUTPUT.
Unicode true
SetCompressor /SOLID lzma
CRCCheck force
RequestExecutionLevel user
ManifestDPIAware true
ManifestSupportedOS all
ManifestLongPathAware true

!include MUI2.nsh
!include LogicLib.nsh

!define KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Kestrune"
!define CODE_DONE 0
!define CODE_NO_HOST 20
!define CODE_HOST_RUNS 30
!define CODE_SOME_FAILED 40
!define CODE_FILES 50
!define CODE_SECOND_START 51
!define ERROR_ALREADY_EXISTS 183
!define REPARSE_POINT 0x400

Var Code
Var Quiet
Var Outcome

Name "Kestrune"
Caption "Kestrune ${VERSION}"
UninstallCaption "Remove Kestrune ${VERSION}"
OutFile "${OUTPUT}"
BrandingText "Kestrune ${VERSION}"
ShowInstDetails show
ShowUninstDetails show
; The times of the commit, which the manifests name too.
SetDateSave on

VIProductVersion ${VERSION4}
VIFileVersion ${VERSION4}
VIAddVersionKey /LANG=1033 ProductName "Kestrune"
VIAddVersionKey /LANG=1033 ProductVersion "${VERSION}"
VIAddVersionKey /LANG=1033 FileVersion "${VERSION}"
VIAddVersionKey /LANG=1033 FileDescription "Kestrune setup"
VIAddVersionKey /LANG=1033 LegalCopyright ""
!if "${PUBLISHER}" != ""
  VIAddVersionKey /LANG=1033 CompanyName "${PUBLISHER}"
!endif

!define MUI_ICON "${ICON}"
!define MUI_UNICON "${ICON}"
!define MUI_ABORTWARNING
!define MUI_WELCOMEPAGE_TITLE "Kestrune ${VERSION}"
!define MUI_WELCOMEPAGE_TEXT "Kestrune gives the PCB editor of Altium Designer one button for the ODB++ export.$\r$\n$\r$\nIt is installed for you alone and needs no administrator rights. Every Altium Designer of yours gets the button; its profile files are backed up before they are changed.$\r$\n$\r$\nPlease close Altium Designer, then press Install."
!define MUI_FINISHPAGE_TITLE "Kestrune is installed"
!define MUI_FINISHPAGE_TEXT_LARGE
!define MUI_FINISHPAGE_TEXT "$Outcome"
!insertmacro MUI_PAGE_WELCOME
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!define MUI_UNCONFIRMPAGE_TEXT_TOP "The button and the files of Kestrune are removed. What you exported stays."
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE English

; Ends with this code: with a box that says why, or without one when silent.
!macro Fail code text
  StrCpy $Code ${code}
  DetailPrint "${text}"
  MessageBox MB_OK|MB_ICONSTOP "${text}" /SD IDOK
  SetErrorLevel $Code
  Abort
!macroend

!macro CommonFunctions un

; The mutex lives until the process ends.
Function ${un}StartAlone
  System::Call 'kernel32::CreateMutexW(p 0, i 0, w "Local\Kestrune.Setup") p .r0 ?e'
  Pop $1
  ${If} $1 = ${ERROR_ALREADY_EXISTS}
    !insertmacro Fail ${CODE_SECOND_START} "Another set-up of Kestrune is running. Wait until it has ended, then try again."
  ${EndIf}
  ; Empty when the profile cannot be reached.
  ${If} $LOCALAPPDATA == ""
    !insertmacro Fail ${CODE_FILES} "Your profile's folder for application data cannot be reached. Nothing was changed."
  ${EndIf}
  StrCpy $INSTDIR "$LOCALAPPDATA\Programs\Kestrune"
  StrCpy $Quiet ""
  ${If} ${Silent}
    StrCpy $Quiet " --quiet"
  ${EndIf}
FunctionEnd

; Removes the folder on the stack with all below it. A link goes, what it points at stays: some of
; these folders lie where other users may write.
Function ${un}RemoveTree
  Exch $0
  Push $1
  Push $2
  Push $3
  System::Call 'kernel32::GetFileAttributesW(w r0) i .r1'
  ${If} $1 = -1
    Goto done
  ${EndIf}
  IntOp $2 $1 & ${REPARSE_POINT}
  ${If} $2 <> 0
    RMDir "$0"
    Goto done
  ${EndIf}
  FindFirst $1 $2 "$0\*"
  ${DoWhile} $2 != ""
    ${If} $2 != "."
    ${AndIf} $2 != ".."
      System::Call 'kernel32::GetFileAttributesW(w "$0\$2") i .r3'
      IntOp $3 $3 & 0x10
      ${If} $3 <> 0
        Push "$0\$2"
        Call ${un}RemoveTree
      ${Else}
        System::Call 'kernel32::SetFileAttributesW(w "$0\$2", i 0x80)'
        Delete "$0\$2"
      ${EndIf}
    ${EndIf}
    ClearErrors
    FindNext $1 $2
    ${If} ${Errors}
      StrCpy $2 ""
    ${EndIf}
  ${Loop}
  FindClose $1
  RMDir "$0"
done:
  Pop $3
  Pop $2
  Pop $1
  Pop $0
FunctionEnd

; Removes from the folder on the stack what a set-up put there, by its own list of sums, so that a
; file which somebody else left there stays.
Function ${un}RemovePackage
  Exch $0
  Push $1
  Push $2
  FileOpen $1 "$0\SHA256SUMS" r
  ${IfNot} ${Errors}
    ${Do}
      ClearErrors
      FileRead $1 $2
      ${If} ${Errors}
        ${ExitDo}
      ${EndIf}
      ; 64 digits and two blanks, the name, a line feed.
      StrCpy $2 $2 -1 66
      Push $2
      Call ${un}PlainName
      Pop $2
      ${If} $2 != ""
        Delete "$0\$2"
      ${EndIf}
    ${Loop}
    FileClose $1
  ${EndIf}
  Delete "$0\SHA256SUMS"
  Delete "$0\Uninstall.exe"
  RMDir "$0\Script"
  RMDir "$0\Runtime"
  RMDir "$0\Assets"
  RMDir "$0\Licenses"
  RMDir "$0\Diagnostics"
  RMDir "$0"
  ClearErrors
  Pop $2
  Pop $1
  Pop $0
FunctionEnd

; Turns the name on the stack from the list's form into a Windows one; empty when it would lead
; outside its folder.
Function ${un}PlainName
  Exch $0
  Push $1
  Push $2
  Push $3
  StrCpy $1 0
  StrCpy $3 ""
  ${Do}
    StrCpy $2 $0 2 $1
    ${If} $2 == ".."
      StrCpy $3 ""
      ${ExitDo}
    ${EndIf}
    StrCpy $2 $0 1 $1
    ${If} $2 == ":"
      StrCpy $3 ""
    ${EndIf}
    ${If} $2 == ":"
    ${OrIf} $2 == ""
      ${ExitDo}
    ${EndIf}
    ${If} $2 == "/"
      StrCpy $2 "\"
    ${EndIf}
    StrCpy $3 "$3$2"
    IntOp $1 $1 + 1
  ${Loop}
  StrCpy $0 $3
  Pop $3
  Pop $2
  Pop $1
  Exch $0
FunctionEnd
!macroend
!insertmacro CommonFunctions ""
!insertmacro CommonFunctions "un."

; ---- installing

Function .onInit
  Call StartAlone
FunctionEnd

; Whatever a set-up that was killed left behind: an older package between its two names comes back.
Function RecoverFolders
  ; An uninstaller without an entry is that of a removal which is about to end.
  StrCpy $1 0
  ${Do}
    ReadRegStr $0 HKCU "${KEY}" UninstallString
    ${If} $0 != ""
    ${OrIfNot} ${FileExists} "$INSTDIR\Uninstall.exe"
    ${OrIf} $1 = 20
      ${ExitDo}
    ${EndIf}
    Sleep 500
    IntOp $1 $1 + 1
  ${Loop}
  ${IfNot} ${FileExists} "$INSTDIR\*.*"
  ${AndIf} ${FileExists} "$INSTDIR.old\*.*"
    Rename "$INSTDIR.old" "$INSTDIR"
  ${EndIf}
  Push "$INSTDIR.old"
  Call RemovePackage
  ${If} ${FileExists} "$INSTDIR.old\*.*"
    System::Call 'kernel32::GetTickCount() i .r0'
    Rename "$INSTDIR.old" "$INSTDIR.old-$0"
  ${EndIf}
  ; The program that a killed set-up had started may still be at work in there.
  StrCpy $1 0
  ${Do}
    Push "$INSTDIR.new"
    Call RemoveTree
    ${IfNot} ${FileExists} "$INSTDIR.new\*.*"
    ${OrIf} $1 = 20
      ${ExitDo}
    ${EndIf}
    Sleep 500
    IntOp $1 $1 + 1
  ${Loop}
  ClearErrors
FunctionEnd

; The package, an older one and the shared runtime lie on the drive at the same time.
Function CheckSpace
  System::Call 'kernel32::GetDiskFreeSpaceExW(w "$LOCALAPPDATA", *l .r0, p 0, p 0) i .r1'
  ${If} $1 <> 0
    System::Int64Op $0 / 1024
    Pop $0
    IntOp $1 ${SIZE_KB} * 3
    System::Int64Op $0 < $1
    Pop $1
    ${If} $1 = 1
      !insertmacro Fail ${CODE_FILES} "There is not enough room on the drive of $LOCALAPPDATA. Nothing was changed."
    ${EndIf}
  ${EndIf}
FunctionEnd

Function UnpackBeside
  ClearErrors
  SetOutPath "$INSTDIR.new"
  File /r "${PAYLOAD}/*"
  WriteUninstaller "$INSTDIR.new\Uninstall.exe"
  ; A folder that is some process's current one cannot be renamed.
  SetOutPath "$TEMP"
  ${If} ${Errors}
    Push "$INSTDIR.new"
    Call RemoveTree
    !insertmacro Fail ${CODE_FILES} "The files cannot be written to $INSTDIR. Nothing was changed."
  ${EndIf}
FunctionEnd

Function RegisterInHosts
  ${Do}
    DetailPrint "Registering in every Altium Designer ..."
    ClearErrors
    ExecWait '"$INSTDIR.new\Kestrune.exe" --install$Quiet --package "$INSTDIR.new"' $Code
    ${If} ${Errors}
      Push "$INSTDIR.new"
      Call RemoveTree
      !insertmacro Fail ${CODE_FILES} "Kestrune.exe cannot be started from $INSTDIR.new. Nothing was changed."
    ${EndIf}
    DetailPrint "Kestrune.exe answered $Code."
    ${If} $Code <> ${CODE_HOST_RUNS}
      ${ExitDo}
    ${EndIf}
    MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "Altium Designer is running. Close it, then press Retry." /SD IDCANCEL IDRETRY +2
      ${ExitDo}
  ${Loop}
FunctionEnd

; Renames the folder $0 to $1. A virus scanner may hold a file that has just run for a moment. The
; error flag tells that it did not work.
Function PatientRename
  StrCpy $2 0
  ${Do}
    ClearErrors
    Rename "$0" "$1"
    ${IfNot} ${Errors}
      ${ExitDo}
    ${EndIf}
    ${If} $2 = 20
      SetErrors
      ${ExitDo}
    ${EndIf}
    Sleep 250
    IntOp $2 $2 + 1
  ${Loop}
FunctionEnd

Function TakePlace
  ${If} ${FileExists} "$INSTDIR\*.*"
    StrCpy $0 "$INSTDIR"
    StrCpy $1 "$INSTDIR.old"
    Call PatientRename
    ${If} ${Errors}
      Push "$INSTDIR.new"
      Call RemoveTree
      !insertmacro Fail ${CODE_FILES} "The older files in $INSTDIR are in use. Close what uses them, then start this set-up again."
    ${EndIf}
  ${EndIf}
  StrCpy $0 "$INSTDIR.new"
  StrCpy $1 "$INSTDIR"
  Call PatientRename
  ${If} ${Errors}
    Rename "$INSTDIR.old" "$INSTDIR"
    Push "$INSTDIR.new"
    Call RemoveTree
    !insertmacro Fail ${CODE_FILES} "The files cannot be put to $INSTDIR. Start this set-up again."
  ${EndIf}
  Push "$INSTDIR.old"
  Call RemovePackage
FunctionEnd

Function WriteEntry
  WriteRegStr HKCU "${KEY}" DisplayName "Kestrune"
  WriteRegStr HKCU "${KEY}" DisplayVersion "${VERSION}"
  !if "${PUBLISHER}" != ""
    WriteRegStr HKCU "${KEY}" Publisher "${PUBLISHER}"
  !else
    DeleteRegValue HKCU "${KEY}" Publisher
  !endif
  WriteRegStr HKCU "${KEY}" DisplayIcon "$INSTDIR\Kestrune.exe"
  WriteRegStr HKCU "${KEY}" InstallLocation "$INSTDIR"
  ; With _?= the uninstaller runs where it lies, so that its caller waits for it and sees its code.
  WriteRegStr HKCU "${KEY}" UninstallString '"$INSTDIR\Uninstall.exe" _?=$INSTDIR'
  WriteRegStr HKCU "${KEY}" QuietUninstallString '"$INSTDIR\Uninstall.exe" /S _?=$INSTDIR'
  WriteRegDWORD HKCU "${KEY}" EstimatedSize ${SIZE_KB}
  WriteRegDWORD HKCU "${KEY}" NoModify 1
  WriteRegDWORD HKCU "${KEY}" NoRepair 1
FunctionEnd

Section "Kestrune"
  Call RecoverFolders
  Call CheckSpace
  Call UnpackBeside
  Call RegisterInHosts
  SetErrorLevel $Code
  ${If} $Code = ${CODE_DONE}
    StrCpy $Outcome "The toolbar of the PCB editor has a new button, Export PCB through Kestrune."
  ${ElseIf} $Code = ${CODE_SOME_FAILED}
    ; Those that worked need the package; the rest can be repeated or removed.
    StrCpy $Outcome "At least one Altium Designer was skipped or could not be changed, as the report said. Put that right and start this set-up again, or remove Kestrune under Apps."
  ${Else}
    Push "$INSTDIR.new"
    Call RemoveTree
    DetailPrint "Nothing was installed."
    Abort
  ${EndIf}
  Call TakePlace
  Call WriteEntry
  DetailPrint "$Outcome"
SectionEnd

; Reached when a file could not be unpacked, too.
Function .onInstFailed
  Push "$INSTDIR.new"
  Call RemoveTree
  ${If} $Code == ""
    StrCpy $Code ${CODE_FILES}
  ${EndIf}
  SetErrorLevel $Code
FunctionEnd

; ---- removing

Function un.onInit
  Call un.StartAlone
FunctionEnd

Function un.Unregister
  StrCpy $0 "$INSTDIR\Kestrune.exe"
  ${IfNot} ${FileExists} "$0"
    StrCpy $0 "$LOCALAPPDATA\Kestrune\Runtime\Kestrune.exe"
  ${EndIf}
  ${Do}
    DetailPrint "Removing the button from every Altium Designer ..."
    ClearErrors
    ExecWait '"$0" --uninstall$Quiet' $Code
    ${If} ${Errors}
      !insertmacro Fail ${CODE_FILES} "Kestrune.exe is missing, so Altium Designer's button cannot be removed. Install Kestrune again, then remove it."
    ${EndIf}
    DetailPrint "Kestrune.exe answered $Code."
    ${If} $Code <> ${CODE_HOST_RUNS}
      ${ExitDo}
    ${EndIf}
    MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "Altium Designer is running. Close it, then press Retry." /SD IDCANCEL IDRETRY +2
      ${ExitDo}
  ${Loop}
FunctionEnd

; The program finds its folders through the profile, which may differ from what the shell says.
; The script keeps its journal in Exchange, beside the runtime.
Function un.RemoveRuntime
  Push "$LOCALAPPDATA\Kestrune\Runtime"
  Call un.RemoveTree
  Push "$LOCALAPPDATA\Kestrune\Exchange"
  Call un.RemoveTree
  ${If} $PROFILE != ""
    Push "$PROFILE\AppData\Local\Kestrune\Runtime"
    Call un.RemoveTree
    Push "$PROFILE\AppData\Local\Kestrune\Exchange"
    Call un.RemoveTree
  ${EndIf}
  SetShellVarContext all
  StrCpy $0 "$DOCUMENTS"
  SetShellVarContext current
  ${If} $0 != ""
    Push "$0\Kestrune\Temp"
    Call un.RemoveTree
    RMDir "$0\Kestrune"
  ${EndIf}
  RMDir "$LOCALAPPDATA\Kestrune"
  ClearErrors
FunctionEnd

Function un.NameWhatStays
  StrCpy $Outcome "Kestrune is removed. These stay, where they exist:$\r$\n$\r$\n\
    your exports: $LOCALAPPDATA\Kestrune\ODBpp, or the export folder of your settings$\r$\n\
    the log: $LOCALAPPDATA\Kestrune\Logs$\r$\n\
    your settings: $LOCALAPPDATA\Kestrune\settings.ini$\r$\n\
    the backups: KestruneBackups in each profile folder of Altium Designer"
  DetailPrint "Kestrune is removed."
  MessageBox MB_OK|MB_ICONINFORMATION "$Outcome" /SD IDOK
FunctionEnd

; A running program cannot be deleted, so the command processor, which needs no file of ours, removes
; the uninstaller and its folder when this process has ended. The paths reach it as values of
; variables, in quotes, and no path can hold a quote: they are never read as commands.
Function un.RemoveItself
  System::Call 'kernel32::SetEnvironmentVariableW(w "KESTRUNE_FILE", w "$EXEPATH")'
  System::Call 'kernel32::SetEnvironmentVariableW(w "KESTRUNE_FOLDER", w "$EXEDIR")'
  StrCpy $0 'ping -n 2 127.0.0.1 & del /f /q "%KESTRUNE_FILE%" & rd "%KESTRUNE_FOLDER%"'
  ; A second time on a slow machine only, for later the file may be that of a new installation.
  ExecShell "" "$SYSDIR\cmd.exe" '/d /c $0 & if exist "%KESTRUNE_FILE%" (ping -n 8 127.0.0.1 & $0)' SW_HIDE
FunctionEnd

Section "un.Kestrune"
  SetOutPath "$TEMP"
  Call un.Unregister
  SetErrorLevel $Code
  ${If} $Code <> ${CODE_DONE}
  ${AndIf} $Code <> ${CODE_NO_HOST}
    DetailPrint "Nothing of Kestrune's files was removed."
    ${If} $Code = ${CODE_SOME_FAILED}
      MessageBox MB_OK|MB_ICONEXCLAMATION "At least one Altium Designer could not be changed, as the report said, so all files of Kestrune stay. Put that right, then remove Kestrune again." /SD IDOK
    ${EndIf}
    Abort
  ${EndIf}
  Call un.RemoveRuntime
  Push "$INSTDIR"
  Call un.RemovePackage
  DeleteRegKey HKCU "${KEY}"
  Call un.NameWhatStays
  Call un.RemoveItself
SectionEnd
