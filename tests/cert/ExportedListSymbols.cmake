# SPDX-License-Identifier: BSD-3-Clause
# cmake -DNM=<program> -DOBJECTS=<file>|<file>... -P ExportedListSymbols.cmake
#
# Fails unless the object files use members of the list of certificates and contain none of them.

string(REPLACE "|" ";" OBJECTS "${OBJECTS}")
execute_process(COMMAND ${NM} --demangle ${OBJECTS}
    OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} failed: ${result}")
endif()

# A line holds an address, unless the symbol is undefined, then its type and its name.
set(list "QList<boost::shared_ptr<vela::SslCertificate> >::")
string(REGEX MATCHALL "[^\n]* [A-Za-z] ${list}[^\n]*" mentioned "${symbols}")
set(used ${mentioned})
list(FILTER used INCLUDE REGEX " U ${list}")
set(contained ${mentioned})
list(FILTER contained EXCLUDE REGEX " U ${list}")

if(contained)
    list(JOIN contained "\n" contained)
    message(FATAL_ERROR "instantiated once more:\n${contained}")
endif()

foreach(member append prepend insert replace removeAll removeOne removeAt takeAt takeFirst takeLast
        move swapItemsAt mid indexOf lastIndexOf contains count value clear reserve detach
        erase toVector fromVector toSet fromSet toStdList fromStdList "operator==" "operator\\+="
        QList ~QList begin end)
    if(NOT "${used}" MATCHES " U ${list}${member}(\\[abi:cxx11\\])?\\(")
        list(APPEND missing ${member})
    endif()
endforeach()
if(missing)
    message(FATAL_ERROR "not taken from the library: ${missing}")
endif()
list(LENGTH used count)
message(STATUS "${count} members of the list are used and none is instantiated")
