# The installed product: the library with its headers, the kit, the program with its manual and the dissector for
# Wireshark, the CMake package and the pkg-config files. A build with the shared library and one with the static library may be installed into one
# prefix: each kind brings an export file of its own, all the rest is the same in both.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

get_target_property(talrtp_kind talrtp EXPORT_NAME)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/talrtp)

install(TARGETS talrtp EXPORT talrtp-${talrtp_kind} FILE_SET HEADERS)
install(EXPORT talrtp-${talrtp_kind} NAMESPACE talrtp:: DESTINATION ${package_dir})

# The kit's target stands in the package file itself, since it goes with whichever library a host chose.
get_target_property(kit_headers talrtp_kit HEADER_SET)
foreach(header ${kit_headers})
  file(RELATIVE_PATH path ${PROJECT_SOURCE_DIR}/include ${header})
  get_filename_component(directory ${path} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${directory})
endforeach()

configure_package_config_file(cmake/talrtpConfig.cmake.in ${PROJECT_BINARY_DIR}/talrtpConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/talrtpConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/talrtpConfig.cmake ${PROJECT_BINARY_DIR}/talrtpConfigVersion.cmake
  DESTINATION ${package_dir})

# The pkg-config files find their prefix from where they lie, so an installed tree may be moved.
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(name talrtp talrtp-kit)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# The program finds the library from where it lies itself, so it runs from any prefix.
if(TARGET talrtp_program)
  file(RELATIVE_PATH library_dir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(talrtp_program PROPERTIES INSTALL_RPATH "$ORIGIN/${library_dir}")
  install(TARGETS talrtp_program)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/host/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    FILES_MATCHING PATTERN "*.1")
  install(FILES ${PROJECT_BINARY_DIR}/host/man/talrtp.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME talrtp)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/talrtp.lua DESTINATION ${CMAKE_INSTALL_DATADIR}/talrtp/wireshark)
endif()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TALRTP_BUILD_DOCUMENTATION)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/documentation/html DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
