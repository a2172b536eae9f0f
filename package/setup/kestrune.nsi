; Setup program of Kestrune, for the user who runs it and without administrator rights.
;
;   /S                     silent: no questions, no windows
;   /LOG=FILE              appends the log to this file as well
;   /EXTRARECORDS=Change   accepts records of changed shortcuts if a profile has some
;   /FORCE                 (uninstaller) removes the files even if a button could not be removed
;
; Exit codes of the setup program and of the uninstaller:
;   0 done                        30 an Altium Designer is running, nothing changed
;   1 cancelled by the user       40 at least one Altium Designer was skipped or failed (setup
;   2 the file is damaged            program), or failed (uninstaller)
;  20 no Altium Designer found,   50 files cannot be written, or the program is missing
;     nothing installed           51 another setup of Kestrune is running
;
; Defined by tools/make-setup: VERSION, VERSION4, PAYLOAD (folder), SIZE_KB, ICON, PICTURE, OUTPUT; TEXTS, the
; folder of the publisher's texts; PUBLISHER for the version resource, empty for none; DOLLAR; SIGN,
; the program that signs the uninstaller.
Unicode true
SetCompressor /SOLID lzma
CRCCheck force
RequestExecutionLevel user
ManifestDPIAware true
ManifestSupportedOS all
ManifestLongPathAware true

!include MUI2.nsh
!include LogicLib.nsh
!include FileFunc.nsh

!define KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Kestrune"
!define CODE_DONE 0
!define CODE_CANCELLED 1
!define CODE_NO_HOST 20
!define CODE_HOST_RUNS 30
!define CODE_SOME_FAILED 40
!define CODE_FILES 50
!define CODE_SECOND_START 51

Var Code
Var Quiet
Var Outcome
; The folder of everything that the program keeps for this user.
Var DataFolder

Name "Kestrune"
Caption "Kestrune ${VERSION}"
UninstallCaption "Remove Kestrune ${VERSION}"
OutFile "${OUTPUT}"
BrandingText "Kestrune ${VERSION}"
ShowInstDetails show
ShowUninstDetails show
; Files keep the time of the commit, as in the manifests.
SetDateSave on
!uninstfinalize '"${SIGN}" "%1" Uninstall.exe' = 0

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
!define MUI_WELCOMEFINISHPAGE_BITMAP "${PICTURE}"
!define MUI_ABORTWARNING
!define MUI_CUSTOMFUNCTION_ABORT LogCancellation
!define MUI_WELCOMEPAGE_TITLE "Kestrune ${VERSION}"
!define MUI_WELCOMEPAGE_TEXT "Kestrune gives the PCB editor of Altium Designer one button for the ODB++ export.$\r$\n$\r$\nIt is installed for you alone and needs no administrator rights. Every Altium Designer of yours gets the button; its profile files are backed up before they are changed.$\r$\n$\r$\nPlease close Altium Designer, then press Install."
!define MUI_FINISHPAGE_TITLE "Kestrune is installed"
!define MUI_FINISHPAGE_TEXT_LARGE
!define MUI_FINISHPAGE_TEXT "$Outcome"
!insertmacro MUI_PAGE_WELCOME
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!define MUI_UNCONFIRMPAGE_TEXT_TOP "The button and the files of Kestrune are removed. Your exports are kept."
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE English

!include "${__FILEDIR__}/log.nsh"
!include "${__FILEDIR__}/folders.nsh"
!include "${__FILEDIR__}/program.nsh"
!include "${__FILEDIR__}/install.nsh"
!include "${__FILEDIR__}/remove.nsh"
