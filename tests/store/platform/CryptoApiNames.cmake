# SPDX-License-Identifier: BSD-3-Clause

# ferrule_list_crypto_api_names(<header> <output>)
#
# Writes lists of what the header declares, in the form of macros that apply their argument to each:
# EACH_CONSTANT(use) to the name of a constant, EACH_FIELD(use) to a structure and one of its fields.
function(ferrule_list_crypto_api_names header output)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    file(READ ${header} text)

    set(constants "")
    string(REGEX MATCHALL "\nconstexpr [^=]* [A-Za-z0-9_]+ =" matches "${text}")
    foreach(match IN LISTS matches)
        string(REGEX REPLACE ".* ([A-Za-z0-9_]+) =" "\\1" name "${match}")
        string(APPEND constants " \\\n    use(${name})")
    endforeach()

    set(fields "")
    string(REPLACE ";" "#" text "${text}")
    string(REGEX MATCHALL "struct [A-Za-z_]+\n{[^}]*}" structures "${text}")
    foreach(structure IN LISTS structures)
        string(REGEX REPLACE "struct _?([A-Za-z_]+)\n.*" "\\1" name "${structure}")
        string(REGEX MATCHALL "[A-Za-z0-9]+(\\[[0-9]+\\])?#" members "${structure}")
        foreach(member IN LISTS members)
            string(REGEX REPLACE "^([A-Za-z0-9]+).*" "\\1" member "${member}")
            string(APPEND fields " \\\n    use(${name}, ${member})")
        endforeach()
    endforeach()

    if(NOT constants OR NOT fields)
        message(FATAL_ERROR "${header} has an unknown form")
    endif()
    file(CONFIGURE OUTPUT ${output} @ONLY
        CONTENT "#define EACH_CONSTANT(use)@constants@\n\n#define EACH_FIELD(use)@fields@\n")
endfunction()
