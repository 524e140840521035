# SPDX-License-Identifier: BSD-3-Clause

# ferrule_add_subsystem(<name> PUBLIC_HEADERS <header>... SOURCES <source>... [DEPENDS <name>...])
#
# Makes the object library ferrule_<name> from the current directory. Public headers are installed
# to, and in the build tree reachable from, <Ferrule/...>.
function(ferrule_add_subsystem name)
    cmake_parse_arguments(ARG "" "" "PUBLIC_HEADERS;SOURCES;DEPENDS" ${ARGN})
    set(target ferrule_${name})
    add_library(${target} OBJECT ${ARG_SOURCES} ${ARG_PUBLIC_HEADERS})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_definitions(${target} PRIVATE FERRULE_BUILD)
    target_include_directories(${target} PUBLIC
        ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/include)
    target_link_libraries(${target} PUBLIC
        ferrule_compiler Qt5::Core Qt5::Network OpenSSL::SSL OpenSSL::Crypto Boost::boost)
    foreach(dependency IN LISTS ARG_DEPENDS)
        target_include_directories(${target} PUBLIC
            $<TARGET_PROPERTY:ferrule_${dependency},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()

    foreach(header IN LISTS ARG_PUBLIC_HEADERS)
        get_filename_component(file ${header} NAME)
        set(forward "#include \"${CMAKE_CURRENT_SOURCE_DIR}/${header}\"\n")
        # Unlike file(WRITE), leaves a file alone that holds this already.
        file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/include/Ferrule/${file}
            CONTENT "${forward}" @ONLY)
        if(FERRULE_INSTALL)
            install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Ferrule)
        endif()
        set_property(GLOBAL APPEND PROPERTY FERRULE_PUBLIC_HEADERS ${file})
    endforeach()
endfunction()
