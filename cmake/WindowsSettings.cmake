# SPDX-License-Identifier: MIT
# Compiler and linker options for every Windows program, in addition to CompilerSettings.cmake.

target_compile_definitions(compiler_settings INTERFACE UNICODE _UNICODE)

if(MSVC)
    target_compile_options(compiler_settings INTERFACE /guard:cf /Gy /Gw)
    target_link_options(compiler_settings INTERFACE
        /guard:cf /CETCOMPAT /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /OPT:REF /OPT:ICF /Brepro)
    return()
endif()

target_compile_definitions(compiler_settings INTERFACE
    # Buffer checks of the C library, which require optimisation.
    $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
target_compile_options(compiler_settings INTERFACE
    -fstack-protector-strong
    # The compiler's part of control-flow enforcement: landing marks for indirect branches.
    -fcf-protection=full
    # So that the linker can drop unused functions and data.
    -ffunction-sections
    -fdata-sections
    # The same bytes whatever folders the sources and Qt are in.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
if(QT_WINDOWS_DIR)
    target_compile_options(compiler_settings INTERFACE -ffile-prefix-map=${QT_WINDOWS_DIR}=qt)
endif()
target_link_options(compiler_settings INTERFACE
    -fstack-protector-strong
    -Wl,--dynamicbase,--high-entropy-va,--nxcompat
    -Wl,--gc-sections
    -Wl,--no-insert-timestamp
    # Windows 7, the oldest that Qt 5.15 supports. With an older number, Windows draws window frames and
    # reports their sizes as that version did.
    -Wl,--major-os-version,6,--minor-os-version,1
    -Wl,--major-subsystem-version,6,--minor-subsystem-version,1)

# A static Qt gives each target that uses it, libraries too, a source file per plugin. Only programs need plugins, and
# they name theirs.
if(QT_WINDOWS_DIR)
    foreach(kind platforms styles imageformats)
        define_property(TARGET PROPERTY QT_PLUGINS_${kind} INITIALIZE_FROM_VARIABLE DEFAULT_QT_PLUGINS_${kind})
        set(DEFAULT_QT_PLUGINS_${kind} -)
    endforeach()
endif()
