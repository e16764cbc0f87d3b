# What the released program is made of beyond its sources: version information, icon, manifest, the
# plugins of a static Qt, and the debug symbols kept in a file of their own.

option(UPDATER_REQUIRE_ADMINISTRATOR
    "Ask for administrator rights at the start, for clients installed under Program Files" OFF)

# windows_program(TARGET)
function(windows_program target)
    set(UPDATER_EXECUTION_LEVEL asInvoker)
    if(UPDATER_REQUIRE_ADMINISTRATOR)
        set(UPDATER_EXECUTION_LEVEL requireAdministrator)
    endif()
    set(UPDATER_ICON ${PROJECT_SOURCE_DIR}/resources/resourceimg/logo.ico)
    set(templates ${PROJECT_SOURCE_DIR}/release/windows)
    set(generated ${PROJECT_BINARY_DIR}/release)
    set(UPDATER_MANIFEST ${generated}/${target}.manifest)
    configure_file(${templates}/AutoUpdate.manifest.in ${UPDATER_MANIFEST} @ONLY)
    configure_file(${templates}/AutoUpdate.rc.in ${generated}/${target}.rc @ONLY)
    set_source_files_properties(${generated}/${target}.rc PROPERTIES
        OBJECT_DEPENDS "${UPDATER_ICON};${UPDATER_MANIFEST}")
    target_sources(${target} PRIVATE ${generated}/${target}.rc)

    # Of a static Qt's plugins only those that the dialogs need; it would link in all there are.
    set_target_properties(${target} PROPERTIES
        QT_PLUGINS_platforms Qt5::QWindowsIntegrationPlugin
        QT_PLUGINS_styles Qt5::QWindowsVistaStylePlugin
        QT_PLUGINS_imageformats "Qt5::QGifPlugin;Qt5::QICOPlugin")

    # The resource holds the manifest; the linker must not make one as well.
    if(MSVC)
        target_link_options(${target} PRIVATE /MANIFEST:NO)
    endif()
    keep_debug_symbols_apart(${target})
endfunction()

# windows_console_program(TARGET): one that shows nothing, and needs none of a static Qt's plugins.
function(windows_console_program target)
    set_target_properties(${target} PROPERTIES
        QT_PLUGINS_platforms -
        QT_PLUGINS_imageformats -)
    keep_debug_symbols_apart(${target})
endfunction()

# The symbols go to TARGET.exe.debug, which the debugger finds through the link left in the program.
function(keep_debug_symbols_apart target)
    if(MSVC OR NOT CMAKE_STRIP OR NOT CMAKE_OBJCOPY)
        return()
    endif()
    # --preserve-dates: of the header's date as well, which would be the time of this build.
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --only-keep-debug $<TARGET_FILE_NAME:${target}> $<TARGET_FILE_NAME:${target}>.debug
        COMMAND ${CMAKE_STRIP} --preserve-dates --strip-all $<TARGET_FILE_NAME:${target}>
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --add-gnu-debuglink=$<TARGET_FILE_NAME:${target}>.debug $<TARGET_FILE_NAME:${target}>
        WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
        BYPRODUCTS ${CMAKE_CURRENT_BINARY_DIR}/${target}.exe.debug
        VERBATIM)
endfunction()
