# SPDX-License-Identifier: BSD-3-Clause
# What every target of this project is compiled with.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_AUTOMOC ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(ferrule_compiler INTERFACE)
target_compile_definitions(ferrule_compiler INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_USE_QSTRINGBUILDER)
target_compile_options(ferrule_compiler INTERFACE -Wall -Wextra -Wpedantic -Wshadow
    -Wnon-virtual-dtor -Woverloaded-virtual)
# A library with GNU unique symbols could never be unloaded again.
target_compile_options(ferrule_compiler INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
if(WIN32)
    # Keeps CryptoAPI out of OpenSSL's headers, which would lose names to its macros.
    target_compile_definitions(ferrule_compiler INTERFACE WIN32_LEAN_AND_MEAN NOMINMAX)
    # What is shipped does not tell where it was built.
    target_compile_options(ferrule_compiler INTERFACE
        -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}/=build/)
    foreach(dependency qt openssl)
        get_filename_component(directory "${FERRULE_WINDOWS_DEPENDENCIES}/${dependency}" REALPATH)
        target_compile_options(ferrule_compiler INTERFACE
            -ffile-prefix-map=${FERRULE_WINDOWS_DEPENDENCIES}/${dependency}/=${dependency}/
            -ffile-prefix-map=${directory}/=${dependency}/)
    endforeach()
endif()
if(FERRULE_WERROR)
    target_compile_options(ferrule_compiler INTERFACE -Werror)
endif()

if(FERRULE_SANITIZE STREQUAL "address")
    set(ferrule_sanitizers -fsanitize=address,undefined -fno-sanitize-recover=undefined)
elseif(FERRULE_SANITIZE STREQUAL "thread")
    set(ferrule_sanitizers -fsanitize=thread)
elseif(FERRULE_SANITIZE STREQUAL "fuzz")
    set(ferrule_sanitizers -fsanitize=fuzzer-no-link,address,undefined
        -fno-sanitize-recover=undefined)
elseif(FERRULE_SANITIZE)
    message(FATAL_ERROR
        "FERRULE_SANITIZE is \"${FERRULE_SANITIZE}\"; known are address, thread and fuzz")
endif()
if(ferrule_sanitizers)
    target_compile_options(ferrule_compiler INTERFACE ${ferrule_sanitizers} -fno-omit-frame-pointer)
    target_link_options(ferrule_compiler INTERFACE ${ferrule_sanitizers})
endif()
