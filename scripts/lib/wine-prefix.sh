# SPDX-License-Identifier: MIT
# shellcheck shell=bash disable=SC2154 # reads variables of scripts/wine-run
# Wine prefixes: how one is prepared, copied, and told of certificates and variables. Sourced by scripts/wine-run, which
# names the folder that keeps the prepared one in $store.

# What a prefix is set to beyond Wine's own defaults:
# - Profiles are in a folder that does not exist, so that the home folder is what USERPROFILE says. A test can set that
#   for itself and for the programs that it starts.
# - Qt Test prints to its standard output rather than to a debugger. Wine passes no QT_ variable on from outside.
# - Without a window manager, a managed window takes two seconds to close.
# - The dialogs' font and Qt's default font are ones that Windows has and this machine has not; the title bars' font has
#   no Chinese.
registry_settings() {
    cat <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList]
"ProfilesDirectory"="Q:\\\\none"

[HKEY_CURRENT_USER\\Volatile Environment]
"USERPROFILE"="C:\\\\users\\\\$(id -un)"

[HKEY_CURRENT_USER\\Environment]
"QT_FORCE_STDERR_LOGGING"="1"

[HKEY_CURRENT_USER\\Software\\Wine\\X11 Driver]
"Managed"="N"

[HKEY_CURRENT_USER\\Software\\Wine\\Fonts\\Replacements]
"微软雅黑"="WenQuanYi Micro Hei"
"Microsoft YaHei"="WenQuanYi Micro Hei"
"MS Shell Dlg 2"="WenQuanYi Micro Hei"

[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\FontLink\\SystemLink]
"Tahoma"=hex(7):$(printf 'wqy-microhei.ttc,WenQuanYi Micro Hei\0\0' | iconv -t UTF-16LE |
        od -An -v -tx1 | tr -s ' \n' , | sed 's/^,//; s/,$//')
REG
}

# registry_trust CERTIFICATE.pem: an entry of the user's root store.
registry_trust() {
    /usr/bin/python3 - "$1" <<'PYTHON'
import hashlib, ssl, struct, sys
der = ssl.PEM_cert_to_DER_cert(open(sys.argv[1], encoding="ascii").read())
digest = hashlib.sha1(der)
# Properties of the entry: number, 1, size, value. 3 is the digest, 32 the certificate.
blob = b"".join(struct.pack("<III", number, 1, len(value)) + value
                for number, value in ((3, digest.digest()), (32, der)))
print("Windows Registry Editor Version 5.00\n")
print(r"[HKEY_CURRENT_USER\Software\Microsoft\SystemCertificates\Root\Certificates\%s]"
      % digest.hexdigest().upper())
print('"Blob"=hex:' + ",".join(f"{byte:02x}" for byte in blob))
PYTHON
}

# registry_variables NAME...: variables of this environment, for Windows programs.
registry_variables() {
    local name
    echo "Windows Registry Editor Version 5.00"
    echo
    echo "[HKEY_CURRENT_USER\\Environment]"
    for name in "$@"; do
        echo "\"$name\"=\"${!name//\\/\\\\}\""
    done
}

# import_registry FILE: UTF-8 text, as the functions above print it, into $WINEPREFIX.
import_registry() {
    # regedit reads UTF-16 with a byte order mark.
    {
        printf '\xff\xfe'
        iconv -f UTF-8 -t UTF-16LE "$1"
    } >"$1.reg"
    "$WINELOADER" regedit "Z:${1//\//\\}.reg" </dev/null >/dev/null 2>&1
    rm -f "$1.reg"
}

# make_prefix FOLDER
make_prefix() {
    local log=$store/prefix.log
    export WINEPREFIX=$1
    # It needs no display, and would keep using the one of this call.
    if ! env -u DISPLAY "$WINELOADER" wineboot --init </dev/null >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        echo "wine-run: no prefix could be made; the whole log is $log" >&2
        exit 1
    fi
    # The symbols on the buttons of title bars.
    cp /usr/share/wine/fonts/marlett.ttf "$1/drive_c/windows/Fonts/"
    registry_settings >"$1/settings"
    import_registry "$1/settings"
    "$WINESERVER" -k || true
    "$WINESERVER" -w
}

# template: prints the folder of the prepared prefix, which it makes when it is missing. The name is a digest of all
# that goes into it.
template() {
    local name made
    name=$store/template-$({
        registry_settings
        dpkg-query -W libwine
    } | sha256sum | cut -c 1-12)
    (
        flock 8
        [ -d "$name" ] && exit
        made=$name.part
        # Copies of an older template keep working: they share files by hard links.
        rm -rf "$store"/template-*
        make_prefix "$made" >&2
        mv "$made" "$name"
    ) 8>"$store/prefix.lock"
    echo "$name"
}

# copy_template TO: Wine's own files are shared, by hard links; the registry and the user's folders are copied.
copy_template() {
    local from to=$1 sharing=(--link)
    from=$(template)
    mkdir -p "$to"
    # Another file system, such as /tmp in memory, needs copies.
    [ "$(stat --format=%d "$from")" = "$(stat --format=%d "$to")" ] || sharing=()
    cp --archive "${sharing[@]}" "$from/." "$to"
    rm -rf "$to"/*.reg "$to/drive_c/users" "$to/wineserver"
    cp -a "$from"/*.reg "$to"
    cp -a "$from/drive_c/users" "$to/drive_c"
}

# replace_command FILE.exe: Windows' own command of that name, in $WINEPREFIX.
replace_command() {
    local name=${1##*/}
    local replaced=$WINEPREFIX/drive_c/windows/system32/$name
    # The file may be a hard link shared with other prefixes, or already be this one, and running.
    if ! cmp -s "$1" "$replaced"; then
        rm -f "$replaced"
        cp "$1" "$replaced"
    fi
    # Otherwise Wine would run its built-in command.
    WINEDLLOVERRIDES+=";$name=n"
}

# import_qt_variables: all of this environment's, but for the platform: the tests' one does not exist on Windows.
import_qt_variables() {
    local names
    mapfile -t names < <(compgen -e | grep '^QT_' | grep -vx QT_QPA_PLATFORM || true)
    if [ "${#names[@]}" -gt 0 ]; then
        registry_variables "${names[@]}" >"$WINEPREFIX/variables"
        import_registry "$WINEPREFIX/variables"
    fi
}
