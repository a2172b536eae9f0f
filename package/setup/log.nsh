; The log of the setup program and the uninstaller: UTF-8, one line for each step with the local time,
; and the program's reports. A log that cannot be written stops no step.

!define LOG_LIMIT 0x100000
!define GENERIC_WRITE 0x40000000
!define GENERIC_READ 0x80000000
!define UTF8 65001

Var LogFile
; Given with /LOG=; empty for none.
Var SecondLog

; Writes a line to the log.
!macro Log text
  Push "${text}"
  !ifdef __UNINSTALL__
    Call un.Log
  !else
    Call Log
  !endif
!macroend

; Writes a line to the log and to the list that the window shows.
!macro Step text
  DetailPrint "${text}"
  !insertmacro Log "${text}"
!macroend

; Ends with this code; unless silent, a box shows the reason.
!macro Fail code text
  StrCpy $Code ${code}
  !insertmacro Step "${text}"
  MessageBox MB_OK|MB_ICONSTOP "${text}$\r$\n$\r$\nLog: $LogFile" /SD IDOK
  SetErrorLevel $Code
  Abort
!macroend

!macro LogFunctions un

; Appends $R2 bytes at the address $R1 to the file $R0. Where the file would become larger than $R3
; bytes, it starts over; 0 is no limit. $R4 is 0 when it could not be written.
Function ${un}AppendBytes
  Push $R5
  StrCpy $R4 0
  System::Call 'kernel32::CreateFileW(w R0, i ${GENERIC_WRITE}, i 1, p 0, i 4, i 0x80, p 0) p .R5'
  ${If} $R5 <> -1
    System::Call 'kernel32::SetFilePointer(p R5, i 0, p 0, i 2) i .R4'
    IntOp $R4 $R4 + $R2
    ${If} $R3 <> 0
    ${AndIf} $R4 > $R3
      System::Call 'kernel32::SetFilePointer(p R5, i 0, p 0, i 0)'
      System::Call 'kernel32::SetEndOfFile(p R5)'
    ${EndIf}
    System::Call 'kernel32::WriteFile(p R5, p R1, i R2, *i 0, p 0) i .R4'
    System::Call 'kernel32::CloseHandle(p R5)'
  ${EndIf}
  Pop $R5
FunctionEnd

; Appends $R2 bytes at the address $R1 to both logs. $R4 is 0 when the second one cannot be written.
Function ${un}LogBytes
  Push $R0
  Push $R3
  StrCpy $R0 "$LogFile"
  StrCpy $R3 ${LOG_LIMIT}
  Call ${un}AppendBytes
  StrCpy $R4 1
  ${If} $SecondLog != ""
    StrCpy $R0 "$SecondLog"
    StrCpy $R3 0
    Call ${un}AppendBytes
  ${EndIf}
  Pop $R3
  Pop $R0
FunctionEnd

; Logs the text on the stack as a line.
Function ${un}Log
  Exch $R0
  Push $R1
  Push $R2
  Push $R3
  Push $R4
  Push $R5
  Push $R6
  Push $R7
  ${GetTime} "" "L" $R1 $R2 $R3 $R4 $R5 $R6 $R7
  StrCpy $R0 "$R3-$R2-$R1 $R5:$R6:$R7 $R0$\r$\n"
  ; A character of the text takes at most three bytes.
  System::Alloc 4096
  Pop $R1
  System::Call 'kernel32::WideCharToMultiByte(i ${UTF8}, i 0, w R0, i -1, p R1, i 4096, p 0, p 0) i .R2'
  ${If} $R2 > 0
    IntOp $R2 $R2 - 1
    Call ${un}LogBytes
    ${If} $R4 = 0
      ; Once, in the log that can be written.
      StrCpy $R0 "$SecondLog"
      StrCpy $SecondLog ""
      !insertmacro Log "The log $R0 cannot be written."
    ${EndIf}
  ${EndIf}
  System::Free $R1
  Pop $R7
  Pop $R6
  Pop $R5
  Pop $R4
  Pop $R3
  Pop $R2
  Pop $R1
  Pop $R0
FunctionEnd

; Copies the program's report, the file on the stack, into the log, without its byte-order mark.
; Copies at most half of the log's limit.
Function ${un}LogReport
  Exch $R0
  Push $R1
  Push $R2
  Push $R4
  Push $R5
  Push $R6
  System::Call 'kernel32::CreateFileW(w R0, i ${GENERIC_READ}, i 3, p 0, i 3, i 0, p 0) p .R5'
  ${If} $R5 <> -1
    System::Alloc 0x80000
    Pop $R6
    System::Call 'kernel32::ReadFile(p R5, p R6, i 0x80000, *i .R2, p 0)'
    System::Call 'kernel32::CloseHandle(p R5)'
    ${If} $R2 > 3
      IntOp $R1 $R6 + 3
      IntOp $R2 $R2 - 3
      Call ${un}LogBytes
    ${EndIf}
    System::Free $R6
  ${EndIf}
  Pop $R6
  Pop $R5
  Pop $R4
  Pop $R2
  Pop $R1
  Pop $R0
FunctionEnd

; Replaces the option on the stack, /NAME or /NAME=, by its value on the command line; "=" for an option without
; a value, empty for an absent option.
Function ${un}Option
  Exch $R0
  Push $R1
  Push $R2
  Push $R3
  Push $R4
  Push $R5
  Push $R6
  StrCpy $R4 $CMDLINE
  System::Call 'shell32::CommandLineToArgvW(w R4, *i .R1) p .R2'
  ${If} $R2 = 0
    StrCpy $R1 0
  ${EndIf}
  StrLen $R3 $R0
  StrCpy $R5 ""
  ${While} $R1 > 0
    IntOp $R1 $R1 - 1
    IntOp $R4 $R1 * 4
    IntOp $R4 $R4 + $R2
    System::Call '*$R4(p .R4)'
    System::Call '*$R4(&w${NSIS_MAX_STRLEN} .R4)'
    StrCpy $R6 $R4 $R3
    ${If} $R6 == $R0
      StrCpy $R5 $R4 "" $R3
      ${If} $R5 == ""
        StrCpy $R5 "="
      ${EndIf}
    ${EndIf}
  ${EndWhile}
  System::Call 'kernel32::LocalFree(p R2)'
  StrCpy $R0 $R5
  Pop $R6
  Pop $R5
  Pop $R4
  Pop $R3
  Pop $R2
  Pop $R1
  Exch $R0
FunctionEnd

; Sets $DataFolder and the paths of the logs. The program finds its folder through the user's profile, which may
; differ from the folder of the shell.
Function ${un}OpenLog
  StrCpy $DataFolder "$LOCALAPPDATA\Kestrune"
  ${If} $PROFILE != ""
    StrCpy $DataFolder "$PROFILE\AppData\Local\Kestrune"
  ${EndIf}
  System::Call 'kernel32::CreateDirectoryW(w "$DataFolder", p 0)'
  System::Call 'kernel32::CreateDirectoryW(w "$DataFolder\Logs", p 0)'
  StrCpy $LogFile "$DataFolder\Logs\setup.log"
  StrCpy $SecondLog ""
  Push "/LOG="
  Call ${un}Option
  Pop $R1
  ${If} $R1 != ""
    ; The setup program changes its current folder, on which a relative path depends.
    System::Call 'kernel32::GetFullPathNameW(w R1, i ${NSIS_MAX_STRLEN}, w .R1, p 0)'
    StrCpy $SecondLog $R1
  ${EndIf}
  ClearErrors
  !insertmacro Log "---- Kestrune ${VERSION}: $CMDLINE"
FunctionEnd

!macroend
!insertmacro LogFunctions ""
!insertmacro LogFunctions "un."
