# SPDX-License-Identifier: BSD-3-Clause
# cmake -DOBJDUMP=<program> -DCXXFILT=<program> -DDLL=<file> -DEXPECTED=<file> -DFOUND=<file>
#       -P DllExports.cmake
#
# Fails unless the library exports what is listed in EXPECTED and nothing else. What it does export
# is written to FOUND; after a change that is meant, FOUND becomes EXPECTED.

cmake_minimum_required(VERSION 3.18)
include(${CMAKE_CURRENT_LIST_DIR}/DllTables.cmake)

read_dll_tables(headers --private-headers)
string(REGEX MATCHALL "\n\t\\[ *[0-9]+\\] [A-Za-z_][^\n]*" lines "${headers}")
string(REGEX REPLACE "\n\t\\[ *[0-9]+\\] " "" names "${lines}")
list(JOIN names "\n" names)
file(WRITE ${FOUND} "${names}\n")
execute_process(COMMAND ${CXXFILT} INPUT_FILE ${FOUND} OUTPUT_VARIABLE names)
string(STRIP "${names}" names)
string(REPLACE "\n" ";" names "${names}")
list(SORT names)
list(REMOVE_DUPLICATES names)
list(JOIN names "\n" names)
file(WRITE ${FOUND} "${names}\n")

execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${EXPECTED} ${FOUND}
    RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    execute_process(COMMAND diff -u ${EXPECTED} ${FOUND} OUTPUT_VARIABLE difference)
    message(FATAL_ERROR "other names than expected are exported:\n${difference}")
endif()
