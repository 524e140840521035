# SPDX-License-Identifier: BSD-3-Clause
# What the checks of the library's tables have in common.

# read_dll_tables(<variable> <option>...)
#
# Stores what OBJDUMP, asked with the options, says about DLL.
function(read_dll_tables variable)
    execute_process(COMMAND ${OBJDUMP} ${ARGN} ${DLL}
        OUTPUT_VARIABLE tables RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${OBJDUMP} failed: ${result}")
    endif()
    set(${variable} "${tables}" PARENT_SCOPE)
endfunction()
