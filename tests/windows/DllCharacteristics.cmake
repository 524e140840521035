# SPDX-License-Identifier: BSD-3-Clause
# cmake -DOBJDUMP=<program> -DDLL=<file> -P DllCharacteristics.cmake
#
# Fails unless the library may be loaded anywhere in a 64-bit address space, cannot execute data and
# carries no debug symbols.

cmake_minimum_required(VERSION 3.18)
include(${CMAKE_CURRENT_LIST_DIR}/DllTables.cmake)

set(HIGH_ENTROPY_VA 0x20)
set(DYNAMIC_BASE 0x40)
set(NX_COMPAT 0x100)

read_dll_tables(headers --private-headers --section-headers)
if(NOT headers MATCHES "DllCharacteristics[ \t]+([0-9a-fA-F]+)")
    message(FATAL_ERROR "${OBJDUMP} shows no DllCharacteristics")
endif()
set(characteristics "0x${CMAKE_MATCH_1}")
foreach(flag HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT)
    math(EXPR present "${characteristics} & ${${flag}}")
    if(NOT present)
        message(FATAL_ERROR "${flag} is not among DllCharacteristics ${characteristics}")
    endif()
endforeach()
if(NOT headers MATCHES " \\.reloc ")
    message(FATAL_ERROR "there are no relocations, so the library can be loaded in one place only")
endif()
if(headers MATCHES " \\.debug_info ")
    message(FATAL_ERROR "the debug symbols are still there")
endif()
