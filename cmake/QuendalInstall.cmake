include(CMakePackageConfigHelpers)

install(TARGETS Quendal EXPORT QuendalTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The drop-in allocator, as Quendal::Malloc.
if(TARGET QuendalMalloc)
  install(TARGETS QuendalMalloc EXPORT QuendalTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()
# The tool comes with the package, as Quendal::quendal-mem-check for projects
# that run it on their ".mem" files.
if(TARGET quendal-mem-check)
  install(TARGETS quendal-mem-check EXPORT QuendalTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

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

# The prefix is found from the .pc file's own place, so an install moved with
# --prefix (or DESTDIR) still points at its own headers and library.
set(QUENDAL_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${QUENDAL_PC_DIR}")
  set(QUENDAL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH QUENDAL_PC_UP "/root/${QUENDAL_PC_DIR}" "/root")
  string(REGEX REPLACE "/$" "" QUENDAL_PC_UP "${QUENDAL_PC_UP}")
  set(QUENDAL_PC_PREFIX "\${pcfiledir}/${QUENDAL_PC_UP}")
endif()
configure_file(cmake/quendal.pc.in ${PROJECT_BINARY_DIR}/quendal.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quendal.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(TARGET QuendalMalloc)
  configure_file(cmake/quendal-malloc.pc.in ${PROJECT_BINARY_DIR}/quendal-malloc.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/quendal-malloc.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
