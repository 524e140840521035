# SPDX-License-Identifier: BSD-3-Clause
# cmake -DNM=<program> -DOBJECTS=<file>|<file>... -DOUTPUT=<file> -P FerruleListExports.cmake
#
# Writes a module definition file that exports all members of the list of certificates that the
# object files instantiate. The compilers of GCC export only those that are not inline, and hosts
# that are compiled without optimisation call the others as well.

string(REPLACE "|" ";" OBJECTS "${OBJECTS}")
execute_process(COMMAND ${NM} ${OBJECTS} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} failed: ${result}")
endif()

set(list "5QListIN5boost10shared_ptrIN4vela14SslCertificateEEEE")
string(REGEX MATCHALL " T _ZNK?${list}[^\n]*" names "${symbols}")
if(NOT names)
    message(FATAL_ERROR "no member of the list is instantiated")
endif()
string(REPLACE " T " "    " names "${names}")
list(REMOVE_DUPLICATES names)
list(SORT names)
list(JOIN names "\n" names)
file(WRITE ${OUTPUT} "EXPORTS\n${names}\n")
