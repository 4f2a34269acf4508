; The setup program. packaging/make-setup.sh defines VERSION, PAYLOAD (directory of the unpacked files), HELPER, ICON,
; OUTPUT and COPYRIGHT, and SIGNER, a command, if the uninstaller is to be signed. All work is done by the helper,
; which can undo every step.

Target amd64-unicode
Unicode true
SetCompressor /SOLID lzma
SetDateSave off
RequestExecutionLevel admin
ManifestSupportedOS all
Name "Torvane Log Server ${VERSION}"
OutFile "${OUTPUT}"
Icon "${ICON}"
UninstallIcon "${ICON}"
InstallDir "$PROGRAMFILES64\Torvane"
ShowInstDetails show
ShowUninstDetails show
XPStyle on
BrandingText "Torvane Log Server ${VERSION}"

VIProductVersion "${VERSION}.0"
VIAddVersionKey /LANG=1033 "CompanyName" "Brenmark VORTA"
VIAddVersionKey /LANG=1033 "FileDescription" "Torvane Log Server setup"
VIAddVersionKey /LANG=1033 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "ProductName" "Torvane Log Server"
VIAddVersionKey /LANG=1033 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "LegalCopyright" "${COPYRIGHT}"

!ifdef SIGNER
  !uninstfinalize '"${SIGNER}" "%1"' = 0
!endif

!include FileFunc.nsh
!include x64.nsh

Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

Var options

; Passes an option of ours on to the helper if the command line has it: /OPTION, or /OPTION=VALUE.
!macro PassSwitch from to
  ClearErrors
  ${GetOptions} "$R0" "${from}" $R1
  IfErrors +2
  StrCpy $options "$options ${to}"
!macroend
!macro PassValue from to
  ClearErrors
  ${GetOptions} "$R0" "${from}" $R1
  IfErrors +5
  StrCpy $R3 $R1 1 -1
  StrCmp $R3 "\" 0 +2
  StrCpy $R1 "$R1\" ; one backslash would take the quotation mark after it as text
  StrCpy $options '$options ${to} "$R1"'
!macroend

!macro RunHelper words
  nsExec::ExecToLog '"$PLUGINSDIR\setup-helper.exe" ${words}$options'
  Pop $R2
  StrCmp $R2 "error" 0 +2
  StrCpy $R2 1
  SetErrorLevel $R2
  IntCmp $R2 0 +3
  DetailPrint "Setup failed with code $R2."
  Abort
!macroend

!macro Check64Bit
  ${IfNot} ${RunningX64}
    MessageBox MB_OK|MB_ICONSTOP "The Torvane Log Server needs 64-bit Windows." /SD IDOK
    SetErrorLevel 1
    Quit
  ${EndIf}
!macroend

Function .onInit
  !insertmacro Check64Bit
  SetRegView 64
  ; An upgrade goes to the directory of the present version, unless /D= names another.
  StrCmp $INSTDIR "$PROGRAMFILES64\Torvane" 0 done
  ReadRegStr $R0 HKLM "SOFTWARE\Brenmark VORTA\Torvane Log Server Package" "Directory"
  StrCmp $R0 "" done
  StrCpy $INSTDIR $R0
done:
  ; Only a drive's root keeps its backslash. It is never the directory of one program.
  StrCpy $R0 $INSTDIR 1 -1
  ${If} $R0 == "\"
    MessageBox MB_OK|MB_ICONSTOP "$INSTDIR is the root of a drive; choose a directory below it." /SD IDOK
    SetErrorLevel 2
    Quit
  ${EndIf}
FunctionEnd

Section
  InitPluginsDir
  ${GetParameters} $R0
  StrCpy $options ""
  !insertmacro PassSwitch "/NOPATH" "--no-path"
  !insertmacro PassValue "/LOG=" "--log"
  !insertmacro PassValue "/FAILAT=" "--fail-at"
  SetOutPath "$PLUGINSDIR\files"
  File /r "${PAYLOAD}/*"
  WriteUninstaller "$PLUGINSDIR\files\uninstall.exe"
  File "/oname=$PLUGINSDIR\setup-helper.exe" "${HELPER}"
  SetOutPath "$PLUGINSDIR"
  !insertmacro RunHelper 'install --payload "$PLUGINSDIR\files" --directory "$INSTDIR" --version ${VERSION}'
SectionEnd

Section un.Remove
  InitPluginsDir
  ${GetParameters} $R0
  StrCpy $options ""
  !insertmacro PassSwitch "/DELETEDATA" "--delete-data"
  !insertmacro PassValue "/LOG=" "--log"
  !insertmacro PassValue "/FAILAT=" "--fail-at"
  SetOutPath "$PLUGINSDIR"
  File "/oname=$PLUGINSDIR\setup-helper.exe" "${HELPER}"
  !insertmacro RunHelper 'remove --directory "$INSTDIR"'
SectionEnd
