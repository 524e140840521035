# SPDX-License-Identifier: BSD-3-Clause
# The subsystems' object libraries, put together: the shared library that hosts link, and the same
# objects for tests that look inside.

set(ferrule_subsystems
    ferrule_resources ferrule_support ferrule_cert ferrule_store ferrule_socket ferrule_module)
list(TRANSFORM ferrule_subsystems REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>"
    OUTPUT_VARIABLE ferrule_objects)

add_library(Ferrule SHARED ${ferrule_objects})
add_library(Ferrule::Ferrule ALIAS Ferrule)
set_target_properties(Ferrule PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} AUTOMOC OFF)
target_link_libraries(Ferrule
    PUBLIC Qt5::Core Qt5::Network Qt5::Xml Boost::boost
    PRIVATE ferrule_compiler OpenSSL::SSL OpenSSL::Crypto)
target_include_directories(Ferrule PUBLIC
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

add_library(ferrule_internals INTERFACE)
target_link_libraries(ferrule_internals INTERFACE ${ferrule_subsystems} ${ferrule_objects})
target_compile_definitions(ferrule_internals INTERFACE FERRULE_STATIC)

if(WIN32)
    include(FerruleWindows)
    ferrule_make_dll(Ferrule)
    target_link_libraries(ferrule_internals INTERFACE crypt32)
endif()
