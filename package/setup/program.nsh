; Starts Kestrune.exe, reads its report, and accepts records of changed shortcuts.

!define ERROR_ALREADY_EXISTS 183
; A copy of the user's registration.ini, or the sign that there was none, while a removal has changed it.
!define KEPT_SETTINGS "registration.ini.before-removal"
!define NO_SETTINGS "registration.ini.none-before-removal"
; The value of the entry that is 1 when the buttons are removed and only files remain.
!define UNREGISTERED "Unregistered"
!define CHANGE_REFUSED "FAILED: Unknown RCS record: Change "
!define REMOVED "Registration removed; shared runtime retained."

; The Kestrune.exe to start.
Var Program
; The file into which the program writes its report.
Var Report
; Of the last report: whether a Change record was rejected, and whether every instance was done or skipped.
Var ChangeRefused
Var NothingFailed

!macro ProgramFunctions un

; Ends a second setup that runs at the same time, and sets the variables of every step. The mutex exists until
; the process ends.
Function ${un}Begin
  InitPluginsDir
  StrCpy $Report "$PLUGINSDIR\report.txt"
  Call ${un}OpenLog
  System::Call 'kernel32::CreateMutexW(p 0, i 0, w "Local\Kestrune.Setup") p .r0 ?e'
  Pop $1
  ${If} $1 = ${ERROR_ALREADY_EXISTS}
    !insertmacro Fail ${CODE_SECOND_START} "Another setup of Kestrune is running. Wait until it has ended, then try again."
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
  Call ${un}RemoveOldUninstallers
FunctionEnd

; Starts $Program with the arguments on the stack, waits, logs its report, and sets $Code to its exit
; code. Sets the error flag when it cannot be started.
Function ${un}RunProgram
  Exch $0
  Delete "$Report"
  ClearErrors
  ExecWait '"$Program" $0 --report "$Report"' $Code
  ${If} ${Errors}
    !insertmacro Log "$Program cannot be started."
    SetErrors
  ${Else}
    Push "$Report"
    Call ${un}LogReport
    !insertmacro Step "Kestrune.exe ended with code $Code."
    Call ${un}ReadReport
    ClearErrors
  ${EndIf}
  Pop $0
FunctionEnd

; Sets $ChangeRefused and $NothingFailed from the report. A report that is missing, has fewer results than
; instances, or does not end with a result counts as that of a failure.
Function ${un}ReadReport
  StrCpy $ChangeRefused 0
  StrCpy $0 0            ; instances
  StrCpy $1 0            ; instances that were done or skipped
  StrCpy $2 ""           ; 1 while the last line is a result
  StrCpy $3 "$\n"        ; end of the previous piece: a long line is read in several
  ClearErrors
  FileOpen $4 "$Report" r
  ${IfNot} ${Errors}
    ${Do}
      FileRead $4 $5
      ${If} ${Errors}
        ${ExitDo}
      ${EndIf}
      ${If} $3 == "$\n"
        Call ${un}ReadReportLine
      ${EndIf}
      StrCpy $3 $5 1 -1
    ${Loop}
    FileClose $4
  ${EndIf}
  ClearErrors
  StrCpy $NothingFailed 0
  ${If} $0 > 0
  ${AndIf} $0 = $1
  ${AndIf} $2 == 1
    StrCpy $NothingFailed 1
  ${EndIf}
FunctionEnd

; Counts the line $5 in the sums of ReadReport.
Function ${un}ReadReportLine
  StrCpy $2 ""
  StrCpy $6 $5 6
  ${If} $6 S== "GUID: "
    IntOp $0 $0 + 1
  ${EndIf}
  StrCpy $6 $5 9
  StrCpy $7 $5 46
  ${If} $6 S== "Skipped: "
  ${OrIf} $7 S== "${REMOVED}"
    IntOp $1 $1 + 1
    StrCpy $2 1
  ${EndIf}
  StrCpy $6 $5 35
  ${If} $6 S== "${CHANGE_REFUSED}"
    StrCpy $ChangeRefused 1
  ${EndIf}
FunctionEnd

; Runs --status, which changes nothing, and sets $ChangeRefused from its report.
Function ${un}CheckForChangeRecords
  !insertmacro Step "Checking the profiles of Altium Designer ..."
  Push "--status --quiet"
  Call ${un}RunProgram
  ${If} ${Errors}
    StrCpy $ChangeRefused 0
  ${EndIf}
FunctionEnd

; Restores registration.ini from the copy that un.KeepSettings made, in this removal or in a killed one.
Function ${un}RestoreSettings
  Delete "$DataFolder\${KEPT_SETTINGS}.incoming"
  ${If} ${FileExists} "$DataFolder\${NO_SETTINGS}"
    Delete "$DataFolder\registration.ini"
    Delete "$DataFolder\${NO_SETTINGS}"
  ${EndIf}
  ${If} ${FileExists} "$DataFolder\${KEPT_SETTINGS}"
    System::Call 'kernel32::MoveFileExW(w "$DataFolder\${KEPT_SETTINGS}", w "$DataFolder\registration.ini", i 1)'
  ${EndIf}
  ClearErrors
FunctionEnd

; Adds the kind Change to the record kinds that the user accepts already.
Function ${un}AcceptChangeRecords
  CreateDirectory "$DataFolder"
  ReadINIStr $0 "$DataFolder\registration.ini" Registration ExtraRecords
  ${If} $0 != ""
    StrCpy $0 "$0,"
  ${EndIf}
  ClearErrors
  WriteINIStr "$DataFolder\registration.ini" Registration ExtraRecords "$0Change"
  ${If} ${Errors}
    !insertmacro Step "$DataFolder\registration.ini cannot be written."
  ${Else}
    FlushINI "$DataFolder\registration.ini"
    !insertmacro Step "Records of changed shortcuts are accepted: ExtraRecords=$0Change in registration.ini."
  ${EndIf}
  ClearErrors
FunctionEnd

!macroend
!insertmacro ProgramFunctions ""
!insertmacro ProgramFunctions "un."
