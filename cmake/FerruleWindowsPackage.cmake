# SPDX-License-Identifier: BSD-3-Clause
# What a package for machines without Qt, OpenSSL and a compiler holds besides what is installed
# anyway: the component "runtime", the DLLs with their licences, and "symbols" for debuggers.

ferrule_find_runtime(runtime)
install(FILES ${runtime}
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime EXCLUDE_FROM_ALL)

set(licence_dir ${CMAKE_INSTALL_DATADIR}/Ferrule/licences)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
    DESTINATION ${licence_dir} RENAME Ferrule.txt COMPONENT runtime EXCLUDE_FROM_ALL)
install(FILES ${PROJECT_SOURCE_DIR}/resources/roots/README.md
    DESTINATION ${licence_dir} RENAME roots.txt COMPONENT runtime EXCLUDE_FROM_ALL)
foreach(dependency qt openssl)
    install(DIRECTORY ${FERRULE_WINDOWS_DEPENDENCIES}/${dependency}/licences/
        DESTINATION ${licence_dir} COMPONENT runtime EXCLUDE_FROM_ALL)
endforeach()
foreach(package gcc-mingw-w64-base libz-mingw-w64 mingw-w64-common)
    install(FILES /usr/share/doc/${package}/copyright
        DESTINATION ${licence_dir} RENAME ${package}.txt COMPONENT runtime EXCLUDE_FROM_ALL)
endforeach()

install(FILES $<TARGET_FILE:Ferrule>.debug
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT symbols EXCLUDE_FROM_ALL)
