# SPDX-License-Identifier: MIT
# shellcheck shell=bash disable=SC2154 # reads variables of scripts/qt-windows
# Debian's source package of Qt. Sourced by scripts/qt-windows.

package=qtbase-opensource-src

# source_version: that of the machine's own Qt, so that fixes by Debian are in the Windows program as well.
source_version() {
    dpkg-query -W -f '${source:Version}' qtbase5-dev 2>/dev/null ||
        die "qtbase5-dev is not installed; run scripts/setup --windows"
}

# write_apt_lists FOLDER: the machine's own package sources, for source packages, in lists outside the system's. So
# nothing of the system's is touched, and this script names no host.
write_apt_lists() {
    local own=$1 list
    mkdir -p "$own/parts" "$own/lists/partial" "$own/archives/partial"
    rm -f "$own"/parts/*
    for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [ -e "$list" ] || continue
        sed -n 's/^[[:space:]]*deb\([[:space:]]\)/deb-src\1/p' "$list" >>"$own/parts/own.list"
    done
    for list in /etc/apt/sources.list.d/*.sources; do
        [ -e "$list" ] || continue
        sed 's/^Types:.*/Types: deb-src/' "$list" >"$own/parts/$(basename "$list")"
    done
}

# fetch PACKAGE...: downloads the first that is available.
fetch() {
    local wanted
    for wanted in "$@"; do
        apt-get "${options[@]}" source --download-only --only-source "$wanted" && return
    done
    return 1
}

# get_sources FOLDER VERSION: leaves the unpacked source package there.
get_sources() {
    local target=$1 version=$2 apt=$work/apt
    [ -d "$target" ] && return
    write_apt_lists "$apt"
    local options=(-o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$apt/parts"
        -o "Dir::State::Lists=$apt/lists" -o "Dir::Cache=$apt" -o APT::Sandbox::User=root)
    logged apt-update apt-get "${options[@]}" update
    rm -f "$work"/*.dsc
    # When this machine's packages are outdated, the package sources have only a newer version.
    (cd "$work" && logged apt-source fetch "$package=$version" "$package")
    rm -rf "$target.part"
    # --no-check: apt has checked the signature and the checksums.
    logged unpack dpkg-source --no-check -x "$work"/*.dsc "$target.part"
    qt_patch "$target.part"
    mv "$target.part" "$target"
}
