include(CMakePackageConfigHelpers)

install(TARGETS Quendal EXPORT QuendalTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT QuendalTargets
  NAMESPACE Quendal::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendal)

configure_package_config_file(cmake/QuendalConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QuendalConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendal)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuendalConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuendalConfig.cmake ${PROJECT_BINARY_DIR}/QuendalConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Quendal)

configure_file(cmake/quendal.pc.in ${PROJECT_BINARY_DIR}/quendal.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quendal.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
