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

# The pkg-config file finds the prefix from its own place (${pcfiledir}), so
# an install moved or made with `cmake --install --prefix` stays usable.
set(KIVGEO_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(KIVGEO_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(KIVGEO_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(KIVGEO_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH pc_to_prefix /prefix/${KIVGEO_PC_DIR} /prefix)
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(KIVGEO_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
  set(KIVGEO_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(KIVGEO_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/kivgeo.pc.in ${PROJECT_BINARY_DIR}/kivgeo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kivgeo.pc DESTINATION ${KIVGEO_PC_DIR})
