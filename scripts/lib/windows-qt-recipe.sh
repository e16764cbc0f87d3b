# shellcheck shell=bash disable=SC2034
# How the static Qt for Windows is made. Sourced by scripts/qt-windows, which builds anew when
# anything but a comment changes here.

# The name is kept out of the program: Qt finds nothing by it, and an installed tree may be moved.
qt_prefix=/qt-windows

qt_options=(
    -opensource -confirm-license
    -prefix "$qt_prefix"
    -xplatform win32-g++ -device-option CROSS_COMPILE=x86_64-w64-mingw32-
    -static -static-runtime -release -optimize-size -no-pch
    # Windows' own TLS, so that its certificate store and its updates hold.
    -schannel -no-openssl
    -no-opengl -no-direct2d -no-dbus -no-icu -no-freetype
    -qt-zlib -qt-pcre -qt-libpng -no-libjpeg -qt-harfbuzz
    # Wants a header that Debian's mingw-w64 lacks.
    -no-feature-tabletevent
    # What the program does not use. The ODF writer stays: the zip classes come with it.
    -no-feature-sql -no-feature-printer -no-feature-concurrent -no-feature-xml
    -no-feature-big_codecs -no-feature-pdf
    -no-feature-textmarkdownreader -no-feature-textmarkdownwriter
    -no-feature-statemachine -no-feature-bearermanagement
    -no-feature-ftp -no-feature-socks5 -no-feature-udpsocket -no-feature-dnslookup
    # The tools stay: CMake's package asks for them.
    -nomake examples -nomake tests
)

# qt_compilers FOLDER: the bare names that Qt's build calls, each the posix variant, whatever the
# machine's default is.
qt_compilers() {
    local tool
    mkdir -p "$1"
    for tool in gcc g++; do
        ln -sf "$(command -v "x86_64-w64-mingw32-$tool-posix")" "$1/x86_64-w64-mingw32-$tool"
    done
}

# qt_patch SOURCES: Windows writes library names as it likes; here the letter case counts.
qt_patch() {
    grep -rlE -e '-l(Secur32|Crypt32)' --include='*.pri' --include='*.json' --include='*.conf' \
        "$1/src" "$1/mkspecs" | xargs -r sed -i 's/-lSecur32/-lsecur32/g; s/-lCrypt32/-lcrypt32/g'
}

# qt_has_zip QT
qt_has_zip() {
    ! grep -q '^#define QT_NO_TEXTODFWRITER' "$1/include/QtGui/qtgui-config.h"
}

# qt_add_zip QT SOURCES: gives a Qt that was built without the ODF writer its zip classes.
qt_add_zip() {
    local qt=$1 sources=$2 version folder includes=()
    version=$(sed -n 's/^QT_VERSION = //p' "$qt/mkspecs/qconfig.pri")
    for folder in QtCore QtGui; do
        includes+=("-I$qt/include/$folder" "-I$qt/include/$folder/$version"
                   "-I$qt/include/$folder/$version/$folder"
                   "-I$qt/include/$folder/$version/$folder/private")
    done
    sed -i '/^#define QT_NO_TEXTODFWRITER/d
            s/^\(#define QT_FEATURE_textodfwriter\) -1/\1 1/' "$qt/include/QtGui/qtgui-config.h"
    x86_64-w64-mingw32-g++-posix -c -std=c++17 -Os -w -fno-exceptions \
        -ffunction-sections -fdata-sections -ffile-prefix-map="$sources"=qt \
        -DQT_BUILD_GUI_LIB -DQT_BUILDING_QT -DQT_NO_DEBUG -DNDEBUG -DUNICODE -D_UNICODE \
        -I"$qt/mkspecs/win32-g++" -I"$qt/include" -I"$qt/include/QtZlib" "${includes[@]}" \
        "$sources/src/gui/text/qzip.cpp" -o "$qt/qzip.o"
    x86_64-w64-mingw32-gcc-ar-posix rcsD "$qt/lib/libQt5Gui.a" "$qt/qzip.o"
    rm "$qt/qzip.o"
}
