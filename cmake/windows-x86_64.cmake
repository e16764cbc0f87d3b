# Cross-compiles for 64-bit Windows with Debian's mingw-w64. The static Qt is the folder that the
# environment names in QT_WINDOWS_DIR, or -DQT_WINDOWS_DIR=...

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The posix variant: the standard library of the other one comes without threads.
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

# No DLL but the system's own may be needed: the compiler's run-time libraries are linked in, and of
# zlib, which is there in both forms, the static one is taken.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(ZLIB_USE_STATIC_LIBS ON)
