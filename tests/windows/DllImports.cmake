# SPDX-License-Identifier: BSD-3-Clause
# cmake -DOBJDUMP=<program> -DDLL=<file> -P DllImports.cmake
#
# Fails if the library needs a DLL other than those of Qt, OpenSSL, the compiler and Windows, or
# does without one that it is built on.

cmake_minimum_required(VERSION 3.18)
include(${CMAKE_CURRENT_LIST_DIR}/DllTables.cmake)

set(EXPECTED
    KERNEL32.dll msvcrt.dll CRYPT32.dll
    libgcc_s_seh-1.dll libstdc++-6.dll
    Qt5Core.dll Qt5Network.dll Qt5Xml.dll
    LIBEAY32.dll SSLEAY32.dll)

read_dll_tables(headers --private-headers)
string(REGEX MATCHALL "DLL Name: [^\n]*" found "${headers}")
string(REPLACE "DLL Name: " "" found "${found}")
list(SORT found CASE INSENSITIVE)
list(SORT EXPECTED CASE INSENSITIVE)
if(NOT found STREQUAL EXPECTED)
    message(FATAL_ERROR "imported are ${found}\nexpected are ${EXPECTED}")
endif()
