# SPDX-License-Identifier: BSD-3-Clause
# What `cpack` packs on Debian: all that is installed, as one package.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ferrule)
set(CPACK_PACKAGE_CONTACT "The Ferrule developers <developers@ferrule.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
# The library's own dependencies are found; these are what its headers include.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qtbase5-dev (>= 5.14), libboost-dev")
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/ferrule RENAME copyright)
include(CPack)
