# What every program for Windows is compiled and linked with beyond CompilerSettings.cmake.

target_compile_definitions(compiler_settings INTERFACE UNICODE _UNICODE)

if(MSVC)
    target_compile_options(compiler_settings INTERFACE /guard:cf /Gy /Gw)
    target_link_options(compiler_settings INTERFACE
        /guard:cf /CETCOMPAT /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /OPT:REF /OPT:ICF /Brepro)
    return()
endif()

target_compile_definitions(compiler_settings INTERFACE
    # Buffer checks of the C library; they want an optimising build.
    $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
target_compile_options(compiler_settings INTERFACE
    -fstack-protector-strong
    # The compiler's share of control-flow enforcement: landing marks for indirect branches.
    -fcf-protection=full
    # What nothing refers to is dropped by the linker.
    -ffunction-sections
    -fdata-sections
    # The same bytes wherever the sources and Qt lie.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
if(QT_WINDOWS_DIR)
    target_compile_options(compiler_settings INTERFACE -ffile-prefix-map=${QT_WINDOWS_DIR}=qt)
endif()
target_link_options(compiler_settings INTERFACE
    -fstack-protector-strong
    -Wl,--dynamicbase,--high-entropy-va,--nxcompat
    -Wl,--gc-sections
    -Wl,--no-insert-timestamp
    # Windows 7, the oldest that Qt 5.15 runs on: an older number makes Windows draw frames and
    # report their sizes as it did then.
    -Wl,--major-os-version,6,--minor-os-version,1
    -Wl,--major-subsystem-version,6,--minor-subsystem-version,1)
