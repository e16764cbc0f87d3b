# SPDX-License-Identifier: MIT
# Cross-compiles for 64-bit Windows with Debian's mingw-w64. The environment variable QT_WINDOWS_DIR, or
# -DQT_WINDOWS_DIR=..., names the folder of the static Qt.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The posix variant: the standard library of the other one has no threads.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

set(QT_WINDOWS_DIR "$ENV{QT_WINDOWS_DIR}" CACHE PATH "The static Qt for Windows")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QT_WINDOWS_DIR)

set(CMAKE_PREFIX_PATH "${QT_WINDOWS_DIR}")
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${QT_WINDOWS_DIR}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The program may need no DLLs except the system's own: the compiler's run-time libraries and zlib are
# linked statically.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(ZLIB_USE_STATIC_LIBS ON)
