# SPDX-License-Identifier: MIT
# shellcheck shell=bash disable=SC2034
# How the static Qt for Windows is made. Sourced by scripts/qt-windows, which builds Qt again when anything but a
# comment changes here.

# A folder that does not exist, so that no program contains a path of this machine; the installed tree may be moved.
qt_prefix=/qt-windows

qt_options=(
    -opensource -confirm-license
    -prefix "$qt_prefix"
    -xplatform win32-g++ -device-option CROSS_COMPILE=x86_64-w64-mingw32-
    -static -static-runtime -release -optimize-size -no-pch
    # Windows' own TLS, so that its certificate store and its updates apply.
    -schannel -no-openssl
    -no-opengl -no-direct2d -no-dbus -no-icu -no-freetype
    -qt-zlib -qt-pcre -qt-libpng -no-libjpeg -qt-harfbuzz
    # Qt would answer a server's challenge with the logged-on user's account.
    -no-feature-sspi -no-feature-gssapi
    # Needs a header that Debian's mingw-w64 lacks.
    -no-feature-tabletevent
    # The program does not use these. The ODF writer stays: the zip classes come with it.
    -no-feature-sql -no-feature-printer -no-feature-concurrent -no-feature-xml
    -no-feature-big_codecs -no-feature-pdf
    -no-feature-textmarkdownreader -no-feature-textmarkdownwriter
    -no-feature-statemachine -no-feature-bearermanagement
    -no-feature-ftp -no-feature-socks5 -no-feature-udpsocket -no-feature-dnslookup
    # The tools stay: Qt's CMake package requires them.
    -nomake examples -nomake tests
)

# qt_compilers FOLDER: the names that Qt's build calls, each for the posix variant, whatever the machine's default is.
qt_compilers() {
    local tool
    mkdir -p "$1"
    for tool in gcc g++; do
        ln -sf "$(command -v "x86_64-w64-mingw32-$tool-posix")" "$1/x86_64-w64-mingw32-$tool"
    done
}

# qt_patch SOURCES: corrects the case of library names, which only matters outside Windows.
qt_patch() {
    grep -rlE -e '-l(Secur32|Crypt32)' --include='*.pri' --include='*.json' --include='*.conf' \
        "$1/src" "$1/mkspecs" | xargs -r sed -i 's/-lSecur32/-lsecur32/g; s/-lCrypt32/-lcrypt32/g'
}
