; SPDX-License-Identifier: MIT
; Installs the sample client for one user. examples/installer/build compiles it:
;
;   CLIENT   the folder to install, including the updater's folder
;   OUT      the installer to make
;
; Exit codes: 0 done, 1 the user cancelled, 2 refused and nothing changed.

Target amd64-unicode
SetCompressor /SOLID lzma
RequestExecutionLevel user
ManifestDPIAware true
ManifestSupportedOS all
; The same files make the same bytes, whatever folder they are in.
SetDateSave off
; A file that cannot be written ends the installation: the new version must not look complete.
AllowSkipFiles off

!include FileFunc.nsh
!include LogicLib.nsh
!include MUI2.nsh

; The values to change for another client.
!define PRODUCT "Sample Client"
!define PUBLISHER "Norvane"
!define NAME "SampleClient"
!define PROGRAM "${NAME}.exe"
!define SCHEME "qorb-meeting"

; The user cannot choose another folder, so the folder has only this client and can safely be removed.
!define FOLDER "$LOCALAPPDATA\Programs\${NAME}"
!define VERSION_FOLDER "~version"
!define VERSION_FILE "${VERSION_FOLDER}/version.json"
!define UNINSTALLER "Uninstall.exe"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\${NAME}"
!define SHORTCUTS "$SMPROGRAMS\${PRODUCT}"
!define CHECK_SHORTCUT_EN "Check for Updates"
!define CHECK_SHORTCUT_ZH "检查更新"

; The updater, and its files below the user's home folder.
!define UPDATER "AutoUpdate\AutoUpdate.exe"
!define CHECK_SWITCH "-noremid"
!define DOWNLOADS "$PROFILE\AppData\Local\${NAME}"
!define UPDATER_LOGS "$PROFILE\AppData\Local\AutoUpdate"
!define CLIENT_DATA "$PROFILE\AppData\Roaming\norvaneAssistant"

; The quotes keep a link with blanks together as one argument.
!define HANDLER_KEY "Software\Classes\${SCHEME}"
!define HANDLER_COMMAND '"$INSTDIR\${UPDATER}" "%1"'

!searchparse /file "${CLIENT}/${VERSION_FILE}" '"version": "' VERSION '"'

Name "${PRODUCT}"
BrandingText "${PRODUCT} ${VERSION}"
OutFile "${OUT}"

!define MUI_ICON "${__FILEDIR__}/../../resources/resourceimg/logo.ico"
!define MUI_UNICON "${MUI_ICON}"

; The user has already agreed to the update, so this only shows the progress.
!define MUI_PAGE_CUSTOMFUNCTION_PRE SkipInUpdate
!insertmacro MUI_PAGE_WELCOME
!insertmacro MUI_PAGE_INSTFILES
!define MUI_FINISHPAGE_RUN
!define MUI_FINISHPAGE_RUN_FUNCTION StartUpdater
!define MUI_PAGE_CUSTOMFUNCTION_PRE SkipInUpdate
!insertmacro MUI_PAGE_FINISH

!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES

!insertmacro MUI_LANGUAGE English
!insertmacro MUI_LANGUAGE SimpChinese

LangString CheckShortcut ${LANG_ENGLISH} "${CHECK_SHORTCUT_EN}"
LangString CheckShortcut ${LANG_SIMPCHINESE} "${CHECK_SHORTCUT_ZH}"
LangString Waiting ${LANG_ENGLISH} "Waiting for ${PRODUCT} to close"
LangString Waiting ${LANG_SIMPCHINESE} "正在等待 ${PRODUCT} 关闭"
LangString InUse ${LANG_ENGLISH} "${PRODUCT} or its updater is running. Close it, then click Retry."
LangString InUse ${LANG_SIMPCHINESE} "${PRODUCT} 或其更新程序正在运行。请将其关闭，然后单击“重试”。"
LangString NoProfile ${LANG_ENGLISH} "Windows does not tell where this user's folders are. Sign in again, then install."
LangString NoProfile ${LANG_SIMPCHINESE} "无法确定当前用户的文件夹位置。请重新登录 Windows，然后再次安装。"
LangString FolderTaken ${LANG_ENGLISH} \
    "The folder $INSTDIR holds files that this installer did not put there. Move them away, then install again."
LangString FolderTaken ${LANG_SIMPCHINESE} "文件夹 $INSTDIR 中有不是由此安装程序放置的文件。请将其移走，然后重新安装。"
LangString NotInstalled ${LANG_ENGLISH} "${PRODUCT} is not installed for this user."
LangString NotInstalled ${LANG_SIMPCHINESE} "当前用户没有安装 ${PRODUCT}。"
LangString FilesLeft ${LANG_ENGLISH} \
    "Some files in $INSTDIR could not be removed. Close the programs that use them, then uninstall again."
LangString FilesLeft ${LANG_SIMPCHINESE} "无法删除 $INSTDIR 中的某些文件。请关闭正在使用这些文件的程序，然后再次卸载。"

; True when the updater has downloaded and started this installer.
!define IsUpdate `$EXEDIR == "${DOWNLOADS}"`

!macro SharedFunctions UN

; Whether the program on the stack runs, 1 or 0: Windows lets no one write to the file of a running one.
Function ${UN}IsRunning
    Exch $0
    ${If} ${FileExists} $0
        ClearErrors
        FileOpen $0 $0 a
        ${If} ${Errors}
            StrCpy $0 1
        ${Else}
            FileClose $0
            StrCpy $0 0
        ${EndIf}
    ${Else}
        StrCpy $0 0
    ${EndIf}
    Exch $0
FunctionEnd

; Waits for the client and the updater to end: an updater that has started an installer needs some time
; to end. Gives up after ten seconds, because ending the client by force would lose the user's work.
Function ${UN}WaitUntilUnused
    StrCpy $1 0
    ${Do}
        Push "$INSTDIR\${PROGRAM}"
        Call ${UN}IsRunning
        Pop $2
        Push "$INSTDIR\${UPDATER}"
        Call ${UN}IsRunning
        Pop $3
        ${If} $2 = 0
        ${AndIf} $3 = 0
            Return
        ${EndIf}
        ${If} $1 = 0
            DetailPrint "$(Waiting)"
        ${EndIf}
        IntOp $1 $1 + 1
        ${If} $1 > 40
            ${If} ${Cmd} `MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "$(InUse)" /SD IDCANCEL IDCANCEL`
                Abort "$(InUse)"
            ${EndIf}
            StrCpy $1 0
        ${EndIf}
        Sleep 250
    ${Loop}
FunctionEnd

!macroend
!insertmacro SharedFunctions ""
!insertmacro SharedFunctions "un."

Function .onInit
    ; Even if /D= named another folder.
    StrCpy $INSTDIR "${FOLDER}"
    ${If} $LOCALAPPDATA == ""
    ${OrIf} $PROFILE == ""
        MessageBox MB_OK|MB_ICONSTOP "$(NoProfile)" /SD IDOK
        SetErrorLevel 2
        Quit
    ${EndIf}
    ReadRegStr $0 HKCU "${UNINSTALL_KEY}" InstallLocation
    ${If} $0 != $INSTDIR
        ${DirState} $INSTDIR $1
        ${If} $1 = 1
            MessageBox MB_OK|MB_ICONSTOP "$(FolderTaken)" /SD IDOK
            SetErrorLevel 2
            Quit
        ${EndIf}
    ${EndIf}
    ${If} ${IsUpdate}
        SetAutoClose true
    ${EndIf}
FunctionEnd

Function SkipInUpdate
    ${If} ${IsUpdate}
        Abort
    ${EndIf}
FunctionEnd

; The updater starts the client at its end.
Function StartUpdater
    SetOutPath "$INSTDIR\AutoUpdate"
    Exec '"$INSTDIR\${UPDATER}"'
FunctionEnd

Section
    Call WaitUntilUnused

    ; First, so that an interrupted installation can be removed. Without DisplayVersion, because zip
    ; packages would not update it.
    SetOutPath $INSTDIR
    WriteUninstaller "$INSTDIR\${UNINSTALLER}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" DisplayName "${PRODUCT}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" Publisher "${PUBLISHER}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" DisplayIcon "$INSTDIR\${UPDATER}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" InstallLocation "$INSTDIR"
    WriteRegStr HKCU "${UNINSTALL_KEY}" UninstallString '"$INSTDIR\${UNINSTALLER}"'
    WriteRegStr HKCU "${UNINSTALL_KEY}" QuietUninstallString '"$INSTDIR\${UNINSTALLER}" /S'
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" NoModify 1
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" NoRepair 1

    File /r /x "${VERSION_FOLDER}" "${CLIENT}/*"

    ; Another program's handler stays.
    ReadRegStr $0 HKCU "${HANDLER_KEY}\shell\open\command" ""
    ${If} $0 == ""
        WriteRegStr HKCU "${HANDLER_KEY}" "" "URL:${SCHEME}"
        WriteRegStr HKCU "${HANDLER_KEY}" "URL Protocol" ""
        WriteRegStr HKCU "${HANDLER_KEY}\shell\open\command" "" '${HANDLER_COMMAND}'
    ${EndIf}

    ; The output folder becomes the shortcut's working folder.
    SetOutPath "$INSTDIR\AutoUpdate"
    CreateDirectory "${SHORTCUTS}"
    CreateShortcut "${SHORTCUTS}\${PRODUCT}.lnk" "$INSTDIR\${UPDATER}"
    CreateShortcut "${SHORTCUTS}\$(CheckShortcut).lnk" "$INSTDIR\${UPDATER}" "${CHECK_SWITCH}"
    CreateShortcut "$DESKTOP\${PRODUCT}.lnk" "$INSTDIR\${UPDATER}"

    ; Last: after an interrupted installation the old version is still reported, and the update is offered again.
    SetOutPath "$INSTDIR\${VERSION_FOLDER}"
    File "${CLIENT}/${VERSION_FILE}"

    ; The user's arguments, possibly with a link. The updater passes them on to the client.
    ${If} ${IsUpdate}
        ${GetParameters} $0
        SetOutPath "$INSTDIR\AutoUpdate"
        Exec '"$INSTDIR\${UPDATER}" $0'
    ${EndIf}
SectionEnd

Function un.onInit
    ; Even if this program was copied to another folder.
    StrCpy $INSTDIR "${FOLDER}"
    ReadRegStr $0 HKCU "${UNINSTALL_KEY}" InstallLocation
    ${If} $LOCALAPPDATA == ""
    ${OrIf} $PROFILE == ""
    ${OrIf} $0 != $INSTDIR
        MessageBox MB_OK|MB_ICONSTOP "$(NotInstalled)" /SD IDOK
        SetErrorLevel 2
        Quit
    ${EndIf}
FunctionEnd

!define FILE_ATTRIBUTE_DIRECTORY 0x10
!define FILE_ATTRIBUTE_REPARSE_POINT 0x400

; Removes the folder on the stack with everything in it. Removes junctions and links to folders without
; following them, unlike RMDir /r.
Function un.RemoveFolder
    Exch $0
    Push $1
    Push $2
    Push $3
    System::Call 'kernel32::GetFileAttributesW(w r0) i .r3'
    IntOp $3 $3 & ${FILE_ATTRIBUTE_REPARSE_POINT}
    ${If} $3 = 0
        FindFirst $1 $2 "$0\*"
        ${DoWhile} $2 != ""
            ${If} $2 != "."
            ${AndIf} $2 != ".."
                System::Call 'kernel32::GetFileAttributesW(w "$0\$2") i .r3'
                IntOp $3 $3 & ${FILE_ATTRIBUTE_DIRECTORY}
                ${If} $3 = 0
                    Delete "$0\$2"
                ${Else}
                    Push "$0\$2"
                    Call un.RemoveFolder
                ${EndIf}
            ${EndIf}
            FindNext $1 $2
        ${Loop}
        FindClose $1
    ${EndIf}
    RMDir $0
    Pop $3
    Pop $2
    Pop $1
    Pop $0
FunctionEnd

Section Uninstall
    Call un.WaitUntilUnused

    ReadRegStr $0 HKCU "${HANDLER_KEY}\shell\open\command" ""
    ${If} $0 == '${HANDLER_COMMAND}'
        DeleteRegKey HKCU "${HANDLER_KEY}"
    ${EndIf}

    Delete "$DESKTOP\${PRODUCT}.lnk"
    Delete "${SHORTCUTS}\${PRODUCT}.lnk"
    Delete "${SHORTCUTS}\${CHECK_SHORTCUT_EN}.lnk"
    Delete "${SHORTCUTS}\${CHECK_SHORTCUT_ZH}.lnk"
    RMDir "${SHORTCUTS}"

    ; The updater empties this folder before each download, so it has no other files.
    Push "${DOWNLOADS}"
    Call un.RemoveFolder
    ; Other programs may keep files in these two folders.
    Delete "${UPDATER_LOGS}\AutoUpdate.log"
    RMDir "${UPDATER_LOGS}"
    Delete "${CLIENT_DATA}\language.txt"
    Delete "${CLIENT_DATA}\update.log"
    Delete "${CLIENT_DATA}\isShowUpdataInfo.txt"
    ; The client's own file, and incomplete copies from when it was killed.
    Delete "${CLIENT_DATA}\session.json"
    Delete "${CLIENT_DATA}\running.lock"
    Delete "${CLIENT_DATA}\session.json.??????"
    Delete "${CLIENT_DATA}\language.txt.??????"
    RMDir "${CLIENT_DATA}"

    ; Everything: there is no list of the files that zip packages have installed.
    SetOutPath $TEMP
    Push $INSTDIR
    Call un.RemoveFolder
    ${If} ${FileExists} "$INSTDIR\*"
        MessageBox MB_OK|MB_ICONEXCLAMATION "$(FilesLeft)" /SD IDOK
        Abort "$(FilesLeft)"
    ${EndIf}
    RMDir "$LOCALAPPDATA\Programs"
    ; Last, so that a removal that failed can be repeated.
    DeleteRegKey HKCU "${UNINSTALL_KEY}"
SectionEnd
