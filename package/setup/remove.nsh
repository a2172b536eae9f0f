; Removing: removes the button from every Altium Designer, then the files.

; Why the files are only removed with /FORCE or after a question; empty when nothing prevents it.
Var Obstacle
; The new path of the uninstaller's own file, which cannot be deleted while it runs.
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

; Copies registration.ini for RestoreSettings; sets the error flag when that fails. The copy is renamed when it
; is complete, since the next run restores the file from it after a removal that was killed.
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

; Accepts Change records for the removal only: the host may have written its first one after the installation.
; RestoreSettings restores the former setting.
Function un.AcceptChangeForRemoval
  Call un.RestoreSettings
  Call un.CheckForChangeRecords
  ${If} $ChangeRefused = 1
    Call un.KeepSettings
    ${IfNot} ${Errors}
      Call un.AcceptChangeRecords
    ${EndIf}
    ClearErrors
  ${EndIf}
FunctionEnd

; Removes the buttons. Sets $Code, and $Obstacle when a button may remain.
Function un.Unregister
  StrCpy $Obstacle ""
  ${Do}
    !insertmacro Step "Removing the button from every Altium Designer ..."
    Push "--uninstall$Quiet"
    Call un.RunProgram
    ${If} ${Errors}
      ReadRegDWORD $0 HKCU "${KEY}" ${UNREGISTERED}
      ${If} $0 = 1
        !insertmacro Step "An interrupted removal has removed the button already."
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
    ; A skipped Altium Designer was never started, or its program is missing: a button that it may still have
    ; does not work anyway.
    !insertmacro Step "An Altium Designer was skipped, none failed: the removal continues."
    StrCpy $Code ${CODE_DONE}
  ${ElseIf} $Code <> ${CODE_DONE}
    StrCpy $Obstacle "At least one Altium Designer could not be changed, as the report said: its button would remain and no longer work."
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
  MessageBox MB_YESNO|MB_DEFBUTTON2|MB_ICONEXCLAMATION "$Obstacle$\r$\n$\r$\nRemove the files of Kestrune anyway? No keeps everything, so that you can correct this and remove Kestrune again.$\r$\n$\r$\nLog: $LogFile" /SD IDNO IDYES forced
  Return
forced:
  !insertmacro Step "The files are removed anyway."
  StrCpy $Code ${CODE_DONE}
FunctionEnd

; Removes the runtime and Exchange, in which the script keeps the files of an export. The program finds its
; folders through the profile, which may differ from those of the shell. The temporary root is kept: every local
; user can replace it with a link, and only the program checks for links while it empties that folder.
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

; Removes the package, and the folders that a killed setup left beside it.
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

; Closes this process's handles of its own file, from which it unpacks: Windows does not rename the file while
; one is open. Nothing is unpacked after this.
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

; Moves the uninstaller to the temporary folder, so that its folder can be deleted: a running program cannot be
; deleted, but moved on its drive. A later setup deletes the file.
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
  ; Succeeds when the running uninstaller is a copy of this file.
  Delete "$OwnFile"
  RMDir "$INSTDIR"
  ClearErrors
FunctionEnd

Function un.ShowKeptFiles
  StrCpy $Outcome "Kestrune is removed. These files are kept, if they exist:$\r$\n$\r$\n\
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
  Call un.AcceptChangeForRemoval
  Call un.Unregister
  Call un.RestoreSettings
  ${If} $Obstacle != ""
    Call un.AskWhetherToForce
  ${EndIf}
  SetErrorLevel $Code
  ${If} $Code <> ${CODE_DONE}
    !insertmacro Step "No file of Kestrune was removed."
    Abort
  ${EndIf}
  ; The program is removed before the entry, so that a removal that is killed in between can be repeated.
  WriteRegDWORD HKCU "${KEY}" ${UNREGISTERED} 1
  Call un.RemoveRuntime
  Call un.RemovePrograms
  DeleteRegKey HKCU "${KEY}"
  Call un.RemoveItself
  Call un.ShowKeptFiles
  !insertmacro Log "Ends with code $Code."
SectionEnd

Function un.onUninstFailed
  !insertmacro Log "Ends with code $Code."
FunctionEnd
