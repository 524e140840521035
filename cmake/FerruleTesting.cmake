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
