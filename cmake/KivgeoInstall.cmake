include(CMakePackageConfigHelpers)

install(TARGETS kivgeo EXPORT kivgeoTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Only the public headers are installed; internal headers stay in the tree.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kivgeo
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

set(KIVGEO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kivgeo)
install(EXPORT kivgeoTargets NAMESPACE kivgeo:: DESTINATION ${KIVGEO_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kivgeoConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kivgeoConfig.cmake
  INSTALL_DESTINATION ${KIVGEO_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kivgeoConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kivgeoConfig.cmake ${PROJECT_BINARY_DIR}/kivgeoConfigVersion.cmake
  DESTINATION ${KIVGEO_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/kivgeo.pc.in ${PROJECT_BINARY_DIR}/kivgeo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kivgeo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
