# SPDX-License-Identifier: BSD-3-Clause
# What goes beside the headers, which each subsystem installs itself: the library, the CMake package
# and the pkg-config file.

include(CMakePackageConfigHelpers)

set(ferrule_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Ferrule)

# An engine outside the system's directories is found again without LD_LIBRARY_PATH.
set_target_properties(Ferrule PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
install(TARGETS Ferrule EXPORT FerruleTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT FerruleTargets NAMESPACE Ferrule:: DESTINATION ${ferrule_package_dir})

configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/FerruleConfig.cmake.in ${PROJECT_BINARY_DIR}/FerruleConfig.cmake
    INSTALL_DESTINATION ${ferrule_package_dir})
# Before 1.0 a new minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/FerruleConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/FerruleConfig.cmake ${PROJECT_BINARY_DIR}/FerruleConfigVersion.cmake
    DESTINATION ${ferrule_package_dir})

# The prefix is given relative to the file, so an installed tree can be moved as a whole.
file(RELATIVE_PATH ferrule_pc_prefix
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/ferrule.pc.in ${PROJECT_BINARY_DIR}/ferrule.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ferrule.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(FERRULE_WINDOWS_DEPENDENCIES)
    include(FerruleWindowsPackage)
elseif(EXISTS /etc/debian_version AND ferrule_is_top_level)
    include(FerruleDebianPackage)
endif()
