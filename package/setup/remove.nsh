; Removing: take the button out of every Altium Designer, then remove the files.

; Why the files are only removed with /FORCE or after a question; empty when nothing prevents it.
Var Obstacle
; Where the uninstaller's own file went, which cannot be deleted while it runs.
Var OwnFile

Function un.onInit
  Call un.Begin
FunctionEnd

Function un.FindProgram
  StrCpy $Program "$INSTDIR\Kestrune.exe"
  ${IfNot} ${FileExists} "$Program"
    StrCpy $Program "$DataFolder\Runtime\Kestrune.exe"
  ${EndIf}
FunctionEnd

; Keeps registration.ini as it is, for RestoreSettings; sets the error flag when that fails. The copy
; gets its name when it is whole, since a removal that was ended while copying is restored from it.
Function un.KeepSettings
  CreateDirectory "$DataFolder"
  ClearErrors
  ${If} ${FileExists} "$DataFolder\registration.ini"
    System::Call 'kernel32::CopyFileW(w "$DataFolder\registration.ini", w "$DataFolder\${KEPT_SETTINGS}.incoming", i 0) i .r0'
    ${If} $0 <> 0
      System::Call 'kernel32::MoveFileExW(w "$DataFolder\${KEPT_SETTINGS}.incoming", w "$DataFolder\${KEPT_SETTINGS}", i 1) i .r0'
    ${EndIf}
    ${If} $0 = 0
      SetErrors
    ${EndIf}
  ${Else}
    FileOpen $0 "$DataFolder\${NO_SETTINGS}" w
    FileClose $0
  ${EndIf}
FunctionEnd

; A host may have written its first Change record after the installation. What the removal lets
; through for itself is taken back by RestoreSettings.
Function un.LetChangeThroughForNow
  Call un.RestoreSettings
  Call un.LookForChangeRecords
  ${If} $ChangeRefused = 1
    Call un.KeepSettings
    ${IfNot} ${Errors}
      Call un.LetChangeThrough
    ${EndIf}
    ClearErrors
  ${EndIf}
FunctionEnd

; Sets $Code, and $Obstacle where a button may have stayed.
Function un.Unregister
  StrCpy $Obstacle ""
  ${Do}
    !insertmacro Step "Removing the button from every Altium Designer ..."
    Push "--uninstall$Quiet"
    Call un.RunProgram
    ${If} ${Errors}
      ReadRegDWORD $0 HKCU "${KEY}" ${UNREGISTERED}
      ${If} $0 = 1
        !insertmacro Step "A removal that did not come to its end has removed the button already."
        StrCpy $Code ${CODE_DONE}
        Return
      ${EndIf}
      StrCpy $Code ${CODE_FILES}
      StrCpy $Obstacle "Kestrune.exe is missing, so the button cannot be removed from Altium Designer. To remove it, install Kestrune again first."
      Return
    ${EndIf}
    ${If} $Code <> ${CODE_HOST_RUNS}
      ${ExitDo}
    ${EndIf}
    MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "Altium Designer is running. Close it, then press Retry." /SD IDCANCEL IDRETRY +2
      Return
  ${Loop}
  ${If} $Code = ${CODE_NO_HOST}
    StrCpy $Code ${CODE_DONE}
  ${ElseIf} $Code = ${CODE_SOME_FAILED}
  ${AndIf} $NothingFailed = 1
    ; An Altium Designer is skipped that was never started or whose program is missing: a button that
    ; it may still have does not work anyway.
    !insertmacro Step "An Altium Designer was skipped, none failed: the removal goes on."
    StrCpy $Code ${CODE_DONE}
  ${ElseIf} $Code <> ${CODE_DONE}
    StrCpy $Obstacle "At least one Altium Designer could not be changed, as the report said: its button would stay and no longer work."
  ${EndIf}
FunctionEnd

; Determines, by a question or by the command line, whether the files are removed despite $Obstacle.
Function un.AskWhetherToForce
  !insertmacro Step "$Obstacle"
  Push "/FORCE"
  Call un.Option
  Pop $0
  ${If} $0 == "="
    Goto forced
  ${EndIf}
  MessageBox MB_YESNO|MB_DEFBUTTON2|MB_ICONEXCLAMATION "$Obstacle$\r$\n$\r$\nRemove the files of Kestrune all the same? No keeps everything, so that you can put that right and remove Kestrune again.$\r$\n$\r$\nLog: $LogFile" /SD IDNO IDYES forced
  Return
forced:
  !insertmacro Step "The files are removed all the same."
  StrCpy $Code ${CODE_DONE}
FunctionEnd

; The program finds its folders through the profile, which may differ from what the shell says.
; The script keeps the files of an export in Exchange, beside the runtime. The folder in which exports
; are prepared is not removed: every local user can put a link in its place, and only the program
; checks for links while it empties that folder.
Function un.RemoveRuntime
  Push "$LOCALAPPDATA\Kestrune\Runtime"
  Call un.RemoveTree
  Push "$LOCALAPPDATA\Kestrune\Exchange"
  Call un.RemoveTree
  Push "$DataFolder\Runtime"
  Call un.RemoveTree
  Push "$DataFolder\Exchange"
  Call un.RemoveTree
  RMDir "$LOCALAPPDATA\Kestrune"
  ClearErrors
FunctionEnd

; Removes the package, and what a set-up that was killed left beside it.
Function un.RemovePrograms
  Push "$INSTDIR.new"
  Call un.RemoveTree
  Call un.RemoveGone
  Rename "$INSTDIR.old" "$INSTDIR.gone"
  Call un.RemoveGone
  Push "$INSTDIR"
  Call un.RemovePackage
FunctionEnd

; Returns on the stack a text that identifies the open file of the handle on the stack; empty for a
; handle of anything but a file.
Function un.FileIdentity
  Exch $0
  Push $1
  Push $2
  Push $3
  Push $4
  ; BY_HANDLE_FILE_INFORMATION
  System::Alloc 52
  Pop $4
  System::Call 'kernel32::GetFileInformationByHandle(p r0, p r4) i .r1'
  StrCpy $0 ""
  ${If} $1 <> 0
    System::Call '*$4(i, i, i, i, i, i, i, i .r1, i, i, i, i .r2, i .r3)'
    StrCpy $0 "$1 $2 $3"
  ${EndIf}
  System::Free $4
  Pop $4
  Pop $3
  Pop $2
  Pop $1
  Exch $0
FunctionEnd

; Closes the handles that this process has on its own file: it unpacks from there, and while such a
; handle is open Windows does not rename the file. Nothing is unpacked after this.
Function un.CloseOwnFile
  System::Call 'kernel32::CreateFileW(w "$INSTDIR\Uninstall.exe", i 0, i 7, p 0, i 3, i 0, p 0) p .r0'
  Push $0
  Call un.FileIdentity
  Pop $1
  System::Call 'kernel32::CloseHandle(p r0)'
  ${If} $1 == ""
    Return
  ${EndIf}
  ${For} $0 4 0x400
    Push $0
    Call un.FileIdentity
    Pop $2
    ${If} $2 == $1
      System::Call 'kernel32::CloseHandle(p r0)'
    ${EndIf}
    IntOp $0 $0 + 3
  ${Next}
FunctionEnd

; A running program cannot be deleted, but it can be moved on its drive, so that the folder can be
; deleted at once. A later set-up deletes the file from the temporary folder.
Function un.RemoveItself
  Call un.CloseOwnFile
  System::Call 'kernel32::GetTickCount() i .r0'
  StrCpy $OwnFile "$TEMP\Kestrune-uninstaller-$0.exe"
  System::Call 'kernel32::MoveFileExW(w "$INSTDIR\Uninstall.exe", w "$OwnFile", i 0) i .r1'
  ${If} $1 = 0
    CreateDirectory "$LOCALAPPDATA\Temp"
    StrCpy $OwnFile "$LOCALAPPDATA\Temp\Kestrune-uninstaller-$0.exe"
    System::Call 'kernel32::MoveFileExW(w "$INSTDIR\Uninstall.exe", w "$OwnFile", i 0) i .r1'
    ${If} $1 = 0
      StrCpy $OwnFile "$INSTDIR\Uninstall.exe"
    ${EndIf}
  ${EndIf}
  ; Succeeds when a copy of the uninstaller is running.
  Delete "$OwnFile"
  RMDir "$INSTDIR"
  ClearErrors
FunctionEnd

Function un.NameWhatStays
  StrCpy $Outcome "Kestrune is removed. These stay, where they exist:$\r$\n$\r$\n\
    - your exports: $DataFolder\ODBpp, or the export folder of your settings$\r$\n\
    - the logs: $DataFolder\Logs$\r$\n\
    - your settings: settings.ini and registration.ini in $DataFolder$\r$\n\
    - the backups: KestruneBackups in each profile folder of Altium Designer"
  SetShellVarContext all
  StrCpy $0 "$DOCUMENTS"
  SetShellVarContext current
  ${If} $0 != ""
    StrCpy $Outcome "$Outcome$\r$\n- the copies made for the last export: $0\Kestrune\Temp"
  ${EndIf}
  ${If} ${FileExists} "$OwnFile"
    StrCpy $Outcome "$Outcome$\r$\n- the uninstaller, which still runs: $OwnFile"
  ${EndIf}
  !insertmacro Log "$Outcome"
  DetailPrint "Kestrune is removed."
  MessageBox MB_OK|MB_ICONINFORMATION "$Outcome" /SD IDOK
FunctionEnd

Section "un.Kestrune"
  SetOutPath "$TEMP"
  Call un.FindProgram
  Call un.LetChangeThroughForNow
  Call un.Unregister
  Call un.RestoreSettings
  ${If} $Obstacle != ""
    Call un.AskWhetherToForce
  ${EndIf}
  SetErrorLevel $Code
  ${If} $Code <> ${CODE_DONE}
    !insertmacro Step "Nothing of Kestrune's files was removed."
    Abort
  ${EndIf}
  ; The program goes before the entry does: a removal that is ended in between can be repeated.
  WriteRegDWORD HKCU "${KEY}" ${UNREGISTERED} 1
  Call un.RemoveRuntime
  Call un.RemovePrograms
  DeleteRegKey HKCU "${KEY}"
  Call un.RemoveItself
  Call un.NameWhatStays
  !insertmacro Log "Ends with code $Code."
SectionEnd

Function un.onUninstFailed
  !insertmacro Log "Ends with code $Code."
FunctionEnd
