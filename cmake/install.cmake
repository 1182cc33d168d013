# Installation: the shared library, the public headers, a CMake package
# (find_package(parvex) -> parvex::distortion_correction, with a version
# file) and parvex.pc for pkg-config, all under the GNUInstallDirs paths and
# in the component "library". Both package descriptions locate the prefix
# from their own place, so an installed tree can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(_pvx_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/parvex)

set_target_properties(parvex_distortion_correction PROPERTIES EXPORT_NAME distortion_correction)
install(TARGETS parvex_distortion_correction EXPORT parvexTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT library)
install(FILES include/parvex_distortion_correction.h include/parvex_border_fill.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library)
install(EXPORT parvexTargets NAMESPACE parvex:: DESTINATION ${_pvx_cmake_dir} COMPONENT library)

configure_package_config_file(cmake/parvexConfig.cmake.in ${PROJECT_BINARY_DIR}/parvexConfig.cmake
  INSTALL_DESTINATION ${_pvx_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/parvexConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/parvexConfig.cmake ${PROJECT_BINARY_DIR}/parvexConfigVersion.cmake
  DESTINATION ${_pvx_cmake_dir} COMPONENT library)

# parvex.pc: the prefix is worked out from the file's own folder.
set(_pvx_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${_pvx_pc_dir}")
  set(PVX_PC_PREFIX_FROM_PCDIR "")
  set(PVX_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
else()
  file(RELATIVE_PATH PVX_PC_PREFIX_FROM_PCDIR /${_pvx_pc_dir} /)
  string(REGEX REPLACE "/$" "" PVX_PC_PREFIX_FROM_PCDIR "${PVX_PC_PREFIX_FROM_PCDIR}")
  set(PVX_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(PVX_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(PVX_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(cmake/parvex.pc.in ${PROJECT_BINARY_DIR}/parvex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/parvex.pc DESTINATION ${_pvx_pc_dir} COMPONENT library)
