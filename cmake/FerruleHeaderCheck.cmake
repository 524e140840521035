# SPDX-License-Identifier: BSD-3-Clause
# The target ferrule_header_check compiles every public header alone, as the first thing in a file,
# with nothing but Qt and Boost at hand. Headers of OpenSSL, which a system keeps where every
# compiler looks, are hidden behind headers that refuse to compile.

set(check_dir ${PROJECT_BINARY_DIR}/header-check)

file(GLOB engine_headers RELATIVE ${OPENSSL_INCLUDE_DIR} ${OPENSSL_INCLUDE_DIR}/openssl/*.h)
foreach(header IN LISTS engine_headers)
    file(CONFIGURE OUTPUT ${check_dir}/refuse/${header}
        CONTENT "#error \"a public header includes <@header@>\"\n" @ONLY)
endforeach()

get_property(public_headers GLOBAL PROPERTY FERRULE_PUBLIC_HEADERS)
set(check_sources "")
foreach(header IN LISTS public_headers)
    file(CONFIGURE OUTPUT ${check_dir}/${header}.cpp CONTENT "#include <Ferrule/@header@>\n" @ONLY)
    list(APPEND check_sources ${check_dir}/${header}.cpp)
endforeach()

add_library(ferrule_header_check OBJECT EXCLUDE_FROM_ALL ${check_sources})
set_target_properties(ferrule_header_check PROPERTIES AUTOMOC OFF)
target_compile_options(ferrule_header_check PRIVATE -Werror)
target_include_directories(ferrule_header_check BEFORE PRIVATE
    ${check_dir}/refuse ${PROJECT_BINARY_DIR}/include)
target_link_libraries(ferrule_header_check PRIVATE
    ferrule_compiler Qt5::Core Qt5::Network Qt5::Xml Boost::boost)
