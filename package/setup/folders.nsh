; Removes and renames folders. $INSTDIR is the package; beside it there are, for a moment,
;   $INSTDIR.new    a package that is being unpacked
;   $INSTDIR.old    the older package until the newer one is registered
;   $INSTDIR.gone   a package that is being removed

!define REPARSE_POINT 0x400

!macro FolderFunctions un

; Removes the folder on the stack with its content. Removes a link and not its target, since other users may
; write to the parents of some of these folders.
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

; Removes the files that a setup wrote to the folder on the stack. They are those of the package's list of sums,
; so that other files are kept. The program is removed last, since an interrupted removal needs it when it is
; repeated. The uninstaller is kept.
Function ${un}RemovePackage
  Exch $0
  Push $1
  Push $2
  ; FileOpen sets the error flag but does not clear an older one.
  ClearErrors
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
      ${AndIf} $2 != "Kestrune.exe"
        Delete "$0\$2"
        ; Removes the file's folder, unless it still has files.
        ${GetParent} "$0\$2" $2
        ${If} $2 != $0
          RMDir "$2"
        ${EndIf}
      ${EndIf}
    ${Loop}
    FileClose $1
  ${EndIf}
  Delete "$0\Kestrune.exe"
  Delete "$0\SHA256SUMS"
  ClearErrors
  Pop $2
  Pop $1
  Pop $0
FunctionEnd

; Converts the name on the stack from the list's form to a Windows path; empty when the path would leave its
; folder.
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

; Removes $INSTDIR.gone; files that are not Kestrune's are kept in a folder $INSTDIR.old-NUMBER.
Function ${un}RemoveGone
  Push $0
  ${If} ${FileExists} "$INSTDIR.gone\*.*"
    Push "$INSTDIR.gone"
    Call ${un}RemovePackage
    Delete "$INSTDIR.gone\Uninstall.exe"
    RMDir "$INSTDIR.gone"
    ${If} ${FileExists} "$INSTDIR.gone\*.*"
      System::Call 'kernel32::GetTickCount() i .r0'
      Rename "$INSTDIR.gone" "$INSTDIR.old-$0"
    ${EndIf}
  ${EndIf}
  ClearErrors
  Pop $0
FunctionEnd

; Removes uninstallers that could not be deleted while they ran.
Function ${un}RemoveOldUninstallers
  Delete "$TEMP\Kestrune-uninstaller-*.exe"
  Delete "$LOCALAPPDATA\Temp\Kestrune-uninstaller-*.exe"
  ClearErrors
FunctionEnd

!macroend
!insertmacro FolderFunctions ""
!insertmacro FolderFunctions "un."

; Renames the folder $0 to $1, with retries for five seconds, since a virus scanner may have a program open that
; has just ended. Sets the error flag when that fails.
Function RenameWithRetries
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

; Removes the package in $INSTDIR and restores the older one, if there is one. Sets the error flag when that
; fails.
Function RestoreFolders
  Call RemoveGone
  ${If} ${FileExists} "$INSTDIR\*.*"
    StrCpy $0 "$INSTDIR"
    StrCpy $1 "$INSTDIR.gone"
    Call RenameWithRetries
    ${If} ${Errors}
      Return
    ${EndIf}
  ${EndIf}
  ${If} ${FileExists} "$INSTDIR.old\*.*"
    StrCpy $0 "$INSTDIR.old"
    StrCpy $1 "$INSTDIR"
    Call RenameWithRetries
    ${If} ${Errors}
      Return
    ${EndIf}
  ${EndIf}
  Call RemoveGone
FunctionEnd
