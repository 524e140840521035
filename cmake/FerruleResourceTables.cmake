# SPDX-License-Identifier: BSD-3-Clause
# cmake -DRCC=<program> -DQRC=<file> -DTABLES=<name> -DOUTPUT=<file> -P FerruleResourceTables.cmake
#
# Writes a source file that defines vela::<name>, the tables of the tree that the .qrc file lists,
# uncompressed. Of what the resource compiler prints only the tables are kept: its initialiser would
# register the tree at a moment that the linker chooses.

execute_process(COMMAND ${RCC} --format-version 1 --no-compress ${QRC}
    OUTPUT_VARIABLE printed RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${RCC} failed on ${QRC}: ${result}")
endif()

string(FIND "${printed}" "static const unsigned char qt_resource_data[]" begin)
string(FIND "${printed}" "#ifdef" end)
math(EXPR length "${end} - ${begin}")
if(begin LESS 0 OR length LESS_EQUAL 0)
    message(FATAL_ERROR "${RCC} prints its tables in an unknown form")
endif()
string(SUBSTRING "${printed}" ${begin} ${length} tables)

file(WRITE ${OUTPUT} "#include \"resources/ResourceTables.h\"

namespace vela {

namespace {

${tables}} // namespace

constexpr ResourceTables ${TABLES}{qt_resource_struct, qt_resource_name, qt_resource_data};

} // namespace vela
")
