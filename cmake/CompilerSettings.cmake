# SPDX-License-Identifier: MIT
# Warnings, sanitizers and definitions for every target of the project.

option(UPDATER_SANITIZE "Build with the address, leak and undefined-behaviour sanitizers" OFF)
option(UPDATER_FIND_LEAKS "Build with the leak sanitizer alone, which costs next to nothing" OFF)
option(UPDATER_FUZZ "Build the fuzz targets, and all that they link, for libFuzzer; needs clang" OFF)

add_library(compiler_settings INTERFACE)

target_compile_definitions(compiler_settings INTERFACE
    # The log shows "(:0)" in every build type, because no call passes its file and line.
    QT_NO_MESSAGELOGCONTEXT
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_URL_CAST_FROM_STRING
    # The sources must compile with Qt 5.12.
    QT_DISABLE_DEPRECATED_BEFORE=0x050c00)

if(MSVC)
    target_compile_options(compiler_settings INTERFACE /utf-8 /W4 /WX /permissive-)
else()
    target_compile_options(compiler_settings INTERFACE
        -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
endif()

if(UPDATER_SANITIZE)
    set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    # The level that the sanitizers are made for: it compiles fast and keeps the stacks whole.
    target_compile_options(compiler_settings INTERFACE ${sanitizers} -O1 -g1)
    target_link_options(compiler_settings INTERFACE ${sanitizers})
endif()

if(UPDATER_FIND_LEAKS)
    target_compile_options(compiler_settings INTERFACE -fsanitize=leak -fno-omit-frame-pointer)
    target_link_options(compiler_settings INTERFACE -fsanitize=leak)
endif()

if(UPDATER_FUZZ)
    # Each finding ends the program; only the fuzz targets link libFuzzer's entry function.
    set(fuzzing -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_compile_options(compiler_settings INTERFACE ${fuzzing})
    target_link_options(compiler_settings INTERFACE ${fuzzing})
endif()
