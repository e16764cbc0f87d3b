# SPDX-License-Identifier: MIT
# What the released program has besides its code: version information, icon, manifest, the plugins of a
# static Qt, and debug symbols in a file of their own.

option(UPDATER_REQUIRE_ADMINISTRATOR
    "Ask for administrator rights at the start, for clients installed under Program Files" OFF)

# windows_program(TARGET): Windows shows the target's name.
function(windows_program target)
    set(UPDATER_EXECUTION_LEVEL asInvoker)
    if(UPDATER_REQUIRE_ADMINISTRATOR)
        set(UPDATER_EXECUTION_LEVEL requireAdministrator)
    endif()
    set(UPDATER_ICON ${PROJECT_SOURCE_DIR}/resources/resourceimg/logo.ico)
    set(templates ${PROJECT_SOURCE_DIR}/release/windows)
    set(generated ${PROJECT_BINARY_DIR}/release)
    set(UPDATER_MANIFEST ${generated}/${target}.manifest)
    configure_file(${templates}/program.manifest.in ${UPDATER_MANIFEST} @ONLY)
    configure_file(${templates}/program.rc.in ${generated}/${target}.rc @ONLY)
    set_source_files_properties(${generated}/${target}.rc PROPERTIES
        OBJECT_DEPENDS "${UPDATER_ICON};${UPDATER_MANIFEST}")
    target_sources(${target} PRIVATE ${generated}/${target}.rc)

    # Only the plugins that the dialogs need: by default a static Qt links all of them.
    set_target_properties(${target} PROPERTIES
        QT_PLUGINS_platforms Qt5::QWindowsIntegrationPlugin
        QT_PLUGINS_styles Qt5::QWindowsVistaStylePlugin
        QT_PLUGINS_imageformats "Qt5::QGifPlugin;Qt5::QICOPlugin")

    # The manifest is in the resource file, so the linker must not make another one.
    if(MSVC)
        target_link_options(${target} PRIVATE /MANIFEST:NO)
    endif()
    write_link_map(${target})
    keep_debug_symbols_apart(${target})
endfunction()

# windows_console_program(TARGET): a program without windows, which needs none of a static Qt's plugins.
function(windows_console_program target)
    set_target_properties(${target} PROPERTIES
        QT_PLUGINS_platforms -
        QT_PLUGINS_imageformats -)
    write_link_map(${target})
    keep_debug_symbols_apart(${target})
endfunction()

# The linker's map, TARGET.exe.map, tells which libraries are inside: the list of components is made from it.
function(write_link_map target)
    if(NOT MSVC)
        target_link_options(${target} PRIVATE -Wl,-Map=$<TARGET_FILE:${target}>.map)
    endif()
endfunction()

# The symbols go to TARGET.exe.debug, which the debugger finds through a link in the program.
function(keep_debug_symbols_apart target)
    if(MSVC OR NOT CMAKE_STRIP OR NOT CMAKE_OBJCOPY)
        return()
    endif()
    # --preserve-dates: otherwise the time of this build is written into the header.
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --only-keep-debug $<TARGET_FILE_NAME:${target}> $<TARGET_FILE_NAME:${target}>.debug
        COMMAND ${CMAKE_STRIP} --preserve-dates --strip-all $<TARGET_FILE_NAME:${target}>
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --add-gnu-debuglink=$<TARGET_FILE_NAME:${target}>.debug $<TARGET_FILE_NAME:${target}>
        WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
        BYPRODUCTS ${CMAKE_CURRENT_BINARY_DIR}/${target}.exe.debug
        VERBATIM)
endfunction()
