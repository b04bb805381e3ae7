# Installs the headers, the library, a CMake package and a pkg-config file, so
# that a client builds with find_package(quillon2 CONFIG REQUIRED) or pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS quillon2 EXPORT quillon2Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/quillon2 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT quillon2Targets NAMESPACE quillon2::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/quillon2)

configure_package_config_file(cmake/quillon2Config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/quillon2Config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/quillon2)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/quillon2ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quillon2Config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/quillon2ConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/quillon2)

# From the pkgconfig directory up to the prefix ("../.." for lib/pkgconfig).
file(RELATIVE_PATH Q2_PC_TO_PREFIX /q2/${CMAKE_INSTALL_LIBDIR}/pkgconfig /q2)
configure_file(cmake/quillon2.pc.in ${CMAKE_CURRENT_BINARY_DIR}/quillon2.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quillon2.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
