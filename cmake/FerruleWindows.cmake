# SPDX-License-Identifier: BSD-3-Clause
# What makes a shared library a DLL for Windows: its name, entry routine, version resource, link
# options, and debug symbols in a file of their own.

enable_language(RC)

# Addresses that the system picks at random from all there are, and data that cannot be executed.
target_link_options(ferrule_compiler INTERFACE
    -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat)

# ferrule_make_dll(<target>)
function(ferrule_make_dll target)
    set(list_exports ${PROJECT_BINARY_DIR}/${target}ListExports.def)
    set(script ${PROJECT_SOURCE_DIR}/cmake/FerruleListExports.cmake)
    add_custom_command(OUTPUT ${list_exports}
        COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM}
            "-DOBJECTS=$<JOIN:$<TARGET_OBJECTS:ferrule_cert>,|>"
            -DOUTPUT=${list_exports} -P ${script}
        DEPENDS ${script} $<TARGET_OBJECTS:ferrule_cert>
        COMMENT "Listing the members of the exported list"
        VERBATIM)
    configure_file(${PROJECT_SOURCE_DIR}/support/module/Ferrule.rc.in
        ${PROJECT_BINARY_DIR}/${target}.rc @ONLY)
    target_sources(${target} PRIVATE
        ${PROJECT_SOURCE_DIR}/support/module/ModuleEntryWindows.cpp
        ${PROJECT_BINARY_DIR}/${target}.rc ${list_exports})
    set_target_properties(${target} PROPERTIES PREFIX "")
    target_link_libraries(${target} PRIVATE crypt32)
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug
            $<TARGET_FILE:${target}> $<TARGET_FILE:${target}>.debug
        COMMAND ${CMAKE_STRIP} $<TARGET_FILE:${target}>
        COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=$<TARGET_FILE:${target}>.debug
            $<TARGET_FILE:${target}>
        COMMENT "Moving the debug symbols of ${target} to a file of their own"
        VERBATIM)
endfunction()

# ferrule_find_runtime(<variable>)
#
# Lists the DLLs, other than those of Windows, that the library is loaded with.
function(ferrule_find_runtime variable)
    set(files "")
    foreach(module Core Network Xml)
        get_target_property(file Qt5::${module} LOCATION)
        list(APPEND files ${file})
    endforeach()
    foreach(name ssleay32 libeay32 zlib1)
        find_file(FERRULE_DLL_${name} ${name}.dll PATHS / PATH_SUFFIXES bin lib REQUIRED)
        list(APPEND files ${FERRULE_DLL_${name}})
    endforeach()
    foreach(name libgcc_s_seh-1 libstdc++-6 libwinpthread-1)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}.dll
            OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE)
        list(APPEND files ${file})
    endforeach()
    set(${variable} ${files} PARENT_SCOPE)
endfunction()
