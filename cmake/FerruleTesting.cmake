# SPDX-License-Identifier: BSD-3-Clause
# What tests/ and fuzz/ have in common.

set(ferrule_sanitizer_environment
    "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1"
    "UBSAN_OPTIONS=print_stacktrace=1"
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/common/tsan.supp:history_size=7"
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/common/lsan.supp:print_suppressions=0")

set(FERRULE_DER_CORPORA der-openssl-fuzz-x509 der-boringssl-fuzz-cert der-boringssl-parse-unit)
set(FERRULE_CORPORA_DIRECTORY ${PROJECT_BINARY_DIR}/corpora)

# ferrule_unpack_corpus(<name>)
#
# Unpacks a corpus of tests/data/corpora to ${FERRULE_CORPORA_DIRECTORY}/<name>, once for all that
# read it.
function(ferrule_unpack_corpus name)
    set(archive ${PROJECT_SOURCE_DIR}/tests/data/corpora/${name}.tar.xz)
    set(directory ${FERRULE_CORPORA_DIRECTORY}/${name})
    set(stamp ${directory}.extracted)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${archive})
    if(${archive} IS_NEWER_THAN ${stamp})
        file(REMOVE_RECURSE ${directory})
        file(ARCHIVE_EXTRACT INPUT ${archive} DESTINATION ${directory})
        file(TOUCH ${stamp})
    endif()
endfunction()

# Programs of a cross-build run under Wine, where they find the DLLs that they link.
if(WIN32 AND CMAKE_CROSSCOMPILING)
    ferrule_find_runtime(ferrule_runtime)
    set(ferrule_dll_directories ${PROJECT_BINARY_DIR})
    foreach(file IN LISTS ferrule_runtime)
        get_filename_component(directory ${file} DIRECTORY)
        list(APPEND ferrule_dll_directories ${directory})
    endforeach()
    list(REMOVE_DUPLICATES ferrule_dll_directories)
    list(JOIN ferrule_dll_directories ":" ferrule_dll_directories)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${PROJECT_SOURCE_DIR}/tests/windows/wine-run.sh
        ${PROJECT_BINARY_DIR}/wine ${ferrule_dll_directories})
endif()
