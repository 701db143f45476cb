# The installed product: the shared library with its headers, the CMake package and the pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/talrtp)

install(TARGETS talrtp EXPORT talrtpTargets FILE_SET HEADERS)
install(EXPORT talrtpTargets NAMESPACE talrtp:: DESTINATION ${package_dir})

configure_package_config_file(cmake/talrtpConfig.cmake.in ${PROJECT_BINARY_DIR}/talrtpConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/talrtpConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/talrtpConfig.cmake ${PROJECT_BINARY_DIR}/talrtpConfigVersion.cmake
  DESTINATION ${package_dir})

# The pkg-config file finds its prefix from where it lies, so an installed tree may be moved.
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/talrtp.pc.in ${PROJECT_BINARY_DIR}/talrtp.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/talrtp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
