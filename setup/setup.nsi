; The setup program. tools/package.sh gives the defines:
;   VERSION            1.2.3
;   VERSION_TEXT       1.2.3-0123abcde
;   OUTPUT             the setup program to write
;   PLUGINS            folder of the plug-in ZarnSetup.dll
;   FILES              script with the files to install, in a fixed order
;   INSTALLED_KIB      their size
;   QUICK              when defined: packs less tightly
;   SIGN               a command that signs the file named behind it; optional
; The plug-in does what needs the service control manager, and says in one
; sentence what went wrong; exit codes are listed in docs/operations.md.

Target amd64-unicode
!ifdef QUICK
SetCompressor zlib
!else
SetCompressor /SOLID lzma
!endif
SetDateSave off
Name "Zarn Update Service"
BrandingText "Zarn Update Service ${VERSION_TEXT}"
OutFile "${OUTPUT}"
RequestExecutionLevel admin
ManifestSupportedOS Win10
ManifestDPIAware true
XPStyle on
ShowInstDetails show
ShowUninstDetails show
AllowSkipFiles off
SetOverwrite try
!addplugindir /amd64-unicode "${PLUGINS}"
!ifdef SIGN
  !uninstfinalize '${SIGN} "%1"' = 0
  !finalize '${SIGN} "%1"' = 0
!endif

VIProductVersion "${VERSION}.0"
VIAddVersionKey "CompanyName" "Zarn, Inc."
VIAddVersionKey "FileDescription" "Zarn Update Service Setup"
VIAddVersionKey "FileVersion" "${VERSION_TEXT}"
VIAddVersionKey "ProductName" "Zarn Media Server"
VIAddVersionKey "ProductVersion" "${VERSION_TEXT}"
VIAddVersionKey "LegalCopyright" "Zarn, Inc."

!include LogicLib.nsh
!include WinVer.nsh

!define FOLDER "$PROGRAMFILES64\Zarn Update Service"
!define ENTRY "Software\Microsoft\Windows\CurrentVersion\Uninstall\ZarnUpdateService"
!define E_FAILED 1603
!define E_NOT_INSTALLED 1605
!define E_UNSUPPORTED 1633
!define E_REBOOT 3010

Var Code
Var Sentence
Var Result
Var Tried

Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

; ---- Steps -------------------------------------------------------------------

; Runs a step of the plug-in; its answer is in $Code, $Sentence and $Result.
!macro Step call
  ZarnSetup::${call}
  Pop $Code
  Pop $Sentence
  Pop $Result
!macroend
!define Step '!insertmacro Step'

!macro Log text
  Push "${text}"
  ZarnSetup::Log
  Pop $0
  Pop $0
  Pop $0
!macroend

; Ends the run with $Code and $Sentence.
!macro Fail
  DetailPrint "$Sentence"
  !insertmacro Log "failed with exit code $Code: $Sentence"
  MessageBox MB_OK|MB_ICONSTOP "$Sentence" /SD IDOK
  SetErrorLevel $Code
!macroend

!macro FailUnlessDone
  ${If} $Code != 0
    !insertmacro Fail
    Quit
  ${EndIf}
!macroend

!macro BeginRun who
  ${Step} 'Begin ${who}'
  !insertmacro FailUnlessDone
  ${If} $Result == help
    ${Step} 'Help ${who}'
    MessageBox MB_OK|MB_ICONINFORMATION "$Result" /SD IDOK
    SetErrorLevel 0
    Quit
  ${EndIf}
!macroend

; ---- Installing --------------------------------------------------------------

Function .onInit
  SetRegView 64
  StrCpy $INSTDIR "${FOLDER}"
  StrCpy $Tried ""
  !insertmacro BeginRun setup
  ${IfNot} ${AtLeastWin10}
    StrCpy $Code ${E_UNSUPPORTED}
    StrCpy $Sentence "The Zarn Update Service needs Windows 10 or later."
    !insertmacro Fail
    Quit
  ${EndIf}
  ${If} $Result == uninstall
    Call RunUninstaller
  ${EndIf}
FunctionEnd

; Uninstalls on behalf of software distribution, which needs to wait for the end
; and to see the exit code: an uninstaller that is started alone ends at once and
; goes on as a copy of itself.
Function RunUninstaller
  ${IfNot} ${FileExists} "$INSTDIR\Uninstall.exe"
    StrCpy $Code ${E_NOT_INSTALLED}
    StrCpy $Sentence "The Zarn Update Service is not installed."
    !insertmacro Fail
    Quit
  ${EndIf}
  ${Step} UninstallerArguments
  !insertmacro FailUnlessDone
  ; A copy: what runs cannot delete itself.
  InitPluginsDir
  ClearErrors
  CopyFiles /SILENT "$INSTDIR\Uninstall.exe" "$PLUGINSDIR\Uninstall.exe"
  ExecWait '"$PLUGINSDIR\Uninstall.exe" /S $Result _?=$INSTDIR' $0
  ${If} ${Errors}
    StrCpy $Code ${E_FAILED}
    StrCpy $Sentence "The uninstaller cannot be started."
    !insertmacro Fail
    Quit
  ${EndIf}
  SetErrorLevel $0
  Quit
FunctionEnd

; Files in use are not overwritten: everything is unpacked beside them first.
Function Unpack
  ClearErrors
  !include "${FILES}"
  SetOutPath "$INSTDIR\Setup.new"
  WriteUninstaller "$INSTDIR\Setup.new\Uninstall.exe"
  SetOutPath "$TEMP"
FunctionEnd

Function ListAmongPrograms
  ClearErrors
  WriteRegStr HKLM "${ENTRY}" DisplayName "Zarn Update Service"
  WriteRegStr HKLM "${ENTRY}" DisplayVersion "${VERSION}"
  WriteRegStr HKLM "${ENTRY}" Comments "${VERSION_TEXT}"
  WriteRegStr HKLM "${ENTRY}" Publisher "Zarn, Inc."
  WriteRegStr HKLM "${ENTRY}" InstallLocation "$INSTDIR"
  WriteRegStr HKLM "${ENTRY}" DisplayIcon '"$INSTDIR\ZarnUpdateService.exe"'
  WriteRegStr HKLM "${ENTRY}" UninstallString '"$INSTDIR\Uninstall.exe"'
  WriteRegStr HKLM "${ENTRY}" QuietUninstallString '"$INSTDIR\Uninstall.exe" /S'
  WriteRegDWORD HKLM "${ENTRY}" EstimatedSize ${INSTALLED_KIB}
  WriteRegDWORD HKLM "${ENTRY}" NoModify 1
  WriteRegDWORD HKLM "${ENTRY}" NoRepair 1
FunctionEnd

; Removes what was unpacked and reports.
Function GiveUp
  StrCpy $1 $Code
  StrCpy $2 $Sentence
  SetOutPath "$TEMP"
  ${Step} 'Tidy "$INSTDIR"'
  StrCpy $Code $1
  StrCpy $Sentence $2
  !insertmacro Fail
  Quit
FunctionEnd

Section
  SetRegView 64
  !insertmacro Log "installing ${VERSION_TEXT}"
  StrCpy $Tried yes
  ${Step} 'Prepare "$INSTDIR"'
  ${If} $Code == 0
    Call Unpack
    ${If} ${Errors}
      StrCpy $Code ${E_FAILED}
      StrCpy $Sentence "The files cannot be written to $\"$INSTDIR$\"."
    ${EndIf}
  ${EndIf}
  ${If} $Code == 0
    DetailPrint "Registering the service"
    ${Step} 'Activate "$INSTDIR"'
  ${EndIf}
  ${If} $Code != 0
    Call GiveUp
  ${EndIf}
  StrCpy $3 $Result
  StrCpy $4 listed
  Call ListAmongPrograms
  ${If} ${Errors}
    StrCpy $4 unlisted
  ${EndIf}
  ${If} $3 == start
    DetailPrint "Starting the service"
    ${Step} Start
    ${If} $Code != 0
      Call GiveUp
    ${EndIf}
  ${EndIf}
  ${If} $4 == unlisted
    StrCpy $Code ${E_FAILED}
    StrCpy $Sentence "The service is installed but cannot be listed among the programs: run setup again."
    Call GiveUp
  ${EndIf}
  ${Step} 'Tidy "$INSTDIR"'
  !insertmacro Log "installed ${VERSION_TEXT}"
  SetErrorLevel 0
SectionEnd

; Reached when unpacking breaks off, as on a full disk.
Function .onInstFailed
  ${If} $Tried == yes
    StrCpy $Code ${E_FAILED}
    StrCpy $Sentence "The files cannot be written to $\"$INSTDIR$\": is the disk full?"
    Call GiveUp
  ${EndIf}
FunctionEnd

; ---- Uninstalling ------------------------------------------------------------

Function un.onInit
  SetRegView 64
  StrCpy $INSTDIR "${FOLDER}"
  !insertmacro BeginRun uninstaller
FunctionEnd

Section Uninstall
  SetRegView 64
  SetOutPath "$TEMP"
  !insertmacro Log "uninstalling ${VERSION_TEXT}"
  ${Step} Unregister
  !insertmacro FailUnlessDone
  RMDir /r /REBOOTOK "$INSTDIR"
  DeleteRegKey HKLM "${ENTRY}"
  !insertmacro Log "uninstalled ${VERSION_TEXT}"
  ${Step} PurgeLogs
  !insertmacro FailUnlessDone
  ${If} ${RebootFlag}
    SetErrorLevel ${E_REBOOT}
  ${Else}
    SetErrorLevel 0
  ${EndIf}
SectionEnd
