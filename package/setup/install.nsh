; Installing: unpacks to a folder beside $INSTDIR, renames it, registers the button, and restores the earlier
; state when that fails.

; 1 when this setup created the entry under Apps.
Var EntryMade

; The value of the entry's key that is 1 while a first package is installed and has no entry yet.
!define UNENTERED "Unentered"

Function .onInit
  Call Begin
FunctionEnd

Function LogCancellation
  !insertmacro Log "Cancelled. Ends with code ${CODE_CANCELLED}."
FunctionEnd

; Removes the package that a killed setup left, and restores the older one.
Function RecoverFolders
  ${If} ${FileExists} "$INSTDIR.old\*.*"
    !insertmacro Step "An earlier setup was interrupted; restoring the older files first."
    Call RestoreFolders
    ${If} ${Errors}
      !insertmacro Fail ${CODE_FILES} "The files in $INSTDIR are in use. Close the programs that use them, then start this setup again."
    ${EndIf}
  ${EndIf}
  Call RemoveUnentered
  Call RemoveGone
  Push "$INSTDIR.new"
  Call RemoveTree
  ClearErrors
FunctionEnd

; Removes the package of a first setup that was killed before it created the entry: no host has its button.
Function RemoveUnentered
  ReadRegDWORD $0 HKCU "${KEY}" ${UNENTERED}
  ReadRegStr $1 HKCU "${KEY}" UninstallString
  ${If} $0 = 1
  ${AndIf} $1 == ""
  ${AndIf} ${FileExists} "$INSTDIR\*.*"
    Call RemoveGone
    StrCpy $0 "$INSTDIR"
    StrCpy $1 "$INSTDIR.gone"
    Call RenameWithRetries
  ${EndIf}
FunctionEnd

; The package, an older one and the shared runtime are on the drive at the same time.
Function CheckSpace
  System::Call 'kernel32::GetDiskFreeSpaceExW(w "$LOCALAPPDATA", *l .r0, p 0, p 0) i .r1'
  ${If} $1 <> 0
    System::Int64Op $0 / 1024
    Pop $0
    IntOp $1 ${SIZE_KB} * 3
    System::Int64Op $0 < $1
    Pop $1
    ${If} $1 = 1
      !insertmacro Fail ${CODE_FILES} "There is not enough space on the drive of $LOCALAPPDATA. Nothing was changed."
    ${EndIf}
  ${EndIf}
FunctionEnd

Function UnpackBeside
  !insertmacro Step "Unpacking to $INSTDIR.new ..."
  ClearErrors
  SetOutPath "$INSTDIR.new"
  File /r "${PAYLOAD}/*"
  WriteUninstaller "$INSTDIR.new\Uninstall.exe"
  ; A folder that is the current folder of a process cannot be renamed.
  SetOutPath "$TEMP"
  ${If} ${Errors}
    Push "$INSTDIR.new"
    Call RemoveTree
    !insertmacro Fail ${CODE_FILES} "The files cannot be written to $INSTDIR. Nothing was changed."
  ${EndIf}
FunctionEnd

Function MoveToInstallFolder
  !insertmacro Step "Moving the files to $INSTDIR ..."
  ${If} ${FileExists} "$INSTDIR\*.*"
    StrCpy $0 "$INSTDIR"
    StrCpy $1 "$INSTDIR.old"
    Call RenameWithRetries
    ${If} ${Errors}
      Push "$INSTDIR.new"
      Call RemoveTree
      !insertmacro Fail ${CODE_FILES} "The older files in $INSTDIR are in use. Nothing was changed. Close the programs that use them, then start this setup again."
    ${EndIf}
  ${EndIf}
  ${IfNot} ${FileExists} "$INSTDIR.old\*.*"
    WriteRegDWORD HKCU "${KEY}" ${UNENTERED} 1
  ${EndIf}
  StrCpy $0 "$INSTDIR.new"
  StrCpy $1 "$INSTDIR"
  Call RenameWithRetries
  ${If} ${Errors}
    Rename "$INSTDIR.old" "$INSTDIR"
    Push "$INSTDIR.new"
    Call RemoveTree
    !insertmacro Fail ${CODE_FILES} "The files cannot be moved to $INSTDIR. Nothing was changed."
  ${EndIf}
FunctionEnd

; Creates the entry before the registration, so that every button can be removed under Apps.
Function MakeFirstEntry
  StrCpy $EntryMade 0
  ReadRegStr $0 HKCU "${KEY}" UninstallString
  ${If} $0 == ""
    StrCpy $EntryMade 1
    Call WriteEntry
  ${EndIf}
FunctionEnd

; Determines, by a question or by the command line, whether records of changed shortcuts are accepted.
Function AskForChangeRecords
  Call CheckForChangeRecords
  ${If} $ChangeRefused <> 1
    Return
  ${EndIf}
  Push "/EXTRARECORDS="
  Call Option
  Pop $0
  ${If} $0 == "Change"
    Call AcceptChangeRecords
    Return
  ${EndIf}
  MessageBox MB_YESNO|MB_ICONQUESTION "You changed shortcuts or captions in Altium Designer. Its profile keeps them as records of the kind Change, which Kestrune does not accept without your consent: such a profile gets no button.$\r$\n$\r$\nMay Kestrune accept these records? It keeps them unchanged, byte for byte, and backs the file up first. If you agree, this is saved in $DataFolder\registration.ini." /SD IDNO IDNO refused
  Call AcceptChangeRecords
  Return
refused:
  !insertmacro Step "Profiles with Change records are not changed; /EXTRARECORDS=Change accepts these records."
FunctionEnd

Function RegisterInHosts
  ${Do}
    !insertmacro Step "Registering in every Altium Designer ..."
    Push '--install$Quiet --package "$INSTDIR"'
    Call RunProgram
    ${If} ${Errors}
      StrCpy $Code ${CODE_FILES}
      ${ExitDo}
    ${EndIf}
    ${If} $Code <> ${CODE_HOST_RUNS}
      ${ExitDo}
    ${EndIf}
    MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "Altium Designer is running. Close it, then press Retry." /SD IDCANCEL IDRETRY +2
      ${ExitDo}
  ${Loop}
FunctionEnd

; Restores the earlier state after a registration that changed nothing.
Function RestoreEarlierState
  Call RestoreFolders
  ${If} ${Errors}
    !insertmacro Step "The older files in $INSTDIR could not be restored. Start this setup again."
    ClearErrors
    Return
  ${EndIf}
  ${If} $EntryMade = 1
    DeleteRegKey HKCU "${KEY}"
  ${EndIf}
  !insertmacro Step "Nothing was installed; the earlier state is restored."
FunctionEnd

Function KeepNewPackage
  ${If} ${FileExists} "$INSTDIR.old\*.*"
    StrCpy $0 "$INSTDIR.old"
    StrCpy $1 "$INSTDIR.gone"
    Call RenameWithRetries
    ClearErrors
    Call RemoveGone
  ${EndIf}
  Call WriteEntry
FunctionEnd

; Registers the publisher's text in the file NAME below ${TEXTS} as a value of the entry, or removes
; the value where there is none. The text is read from a file, so that it may have any character.
!macro PublisherText name value
  File "/oname=$PLUGINSDIR\${name}" "${TEXTS}/${name}"
  FileOpen $0 "$PLUGINSDIR\${name}" r
  FileReadUTF16LE $0 $1
  FileClose $0
  ${If} $1 != ""
    WriteRegStr HKCU "${KEY}" ${value} "$1"
  ${Else}
    DeleteRegValue HKCU "${KEY}" ${value}
  ${EndIf}
!macroend

Function WriteEntry
  WriteRegStr HKCU "${KEY}" DisplayName "Kestrune"
  WriteRegStr HKCU "${KEY}" DisplayVersion "${VERSION}"
  !insertmacro PublisherText publisher Publisher
  !insertmacro PublisherText help HelpLink
  !insertmacro PublisherText about URLInfoAbout
  WriteRegStr HKCU "${KEY}" DisplayIcon "$INSTDIR\Kestrune.exe"
  WriteRegStr HKCU "${KEY}" InstallLocation "$INSTDIR"
  ${GetTime} "" "L" $0 $1 $2 $3 $4 $5 $6
  WriteRegStr HKCU "${KEY}" InstallDate "$2$1$0"
  ; With _?= the uninstaller runs from its own folder, so that its caller waits for it and gets its exit code.
  WriteRegStr HKCU "${KEY}" QuietUninstallString '"$INSTDIR\Uninstall.exe" /S _?=$INSTDIR'
  WriteRegDWORD HKCU "${KEY}" EstimatedSize ${SIZE_KB}
  WriteRegDWORD HKCU "${KEY}" NoModify 1
  WriteRegDWORD HKCU "${KEY}" NoRepair 1
  ; A setup recognises an existing entry by this value, so it is written last.
  WriteRegStr HKCU "${KEY}" UninstallString '"$INSTDIR\Uninstall.exe" _?=$INSTDIR'
  DeleteRegValue HKCU "${KEY}" ${UNREGISTERED}
  DeleteRegValue HKCU "${KEY}" ${UNENTERED}
  ClearErrors
FunctionEnd

Section "Kestrune"
  Call RecoverFolders
  Call RestoreSettings
  Call CheckSpace
  Call UnpackBeside
  Call MoveToInstallFolder
  Call MakeFirstEntry
  StrCpy $Program "$INSTDIR\Kestrune.exe"
  Call AskForChangeRecords
  Call RegisterInHosts
  SetErrorLevel $Code
  ${If} $Code = ${CODE_DONE}
    StrCpy $Outcome "The toolbar of the PCB editor has a new button, Export PCB through Kestrune."
  ${ElseIf} $Code = ${CODE_SOME_FAILED}
    ; The instances that succeeded need the package; the others can be repeated or removed.
    StrCpy $Outcome "At least one Altium Designer was skipped or could not be changed, as the report said. Correct this and start this setup again, or remove Kestrune under Apps."
  ${Else}
    Call RestoreEarlierState
    ${If} $Code = ${CODE_FILES}
      !insertmacro Fail ${CODE_FILES} "Kestrune.exe cannot be started from $INSTDIR."
    ${EndIf}
    Abort
  ${EndIf}
  Call KeepNewPackage
  !insertmacro Step "$Outcome"
  !insertmacro Log "Ends with code $Code."
  ${If} $Code <> ${CODE_DONE}
    StrCpy $Outcome "$Outcome$\r$\n$\r$\nLog: $LogFile"
  ${EndIf}
SectionEnd

; Also called when a file could not be unpacked.
Function .onInstFailed
  Push "$INSTDIR.new"
  Call RemoveTree
  DeleteRegValue HKCU "${KEY}" ${UNENTERED}
  DeleteRegKey /ifempty HKCU "${KEY}"
  ${If} $Code == ""
    StrCpy $Code ${CODE_FILES}
  ${EndIf}
  SetErrorLevel $Code
  !insertmacro Log "Ends with code $Code."
FunctionEnd
