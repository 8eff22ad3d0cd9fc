include(CMakePackageConfigHelpers)

install(TARGETS vexamonitor EXPORT vexamonitorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/vexa DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT vexamonitorTargets NAMESPACE vexa::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vexamonitor)

configure_package_config_file(cmake/vexamonitorConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vexamonitorConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vexamonitor)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vexamonitorConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vexamonitorConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vexamonitorConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vexamonitor)

# The .pc file finds its prefix from its own place, so an install moved elsewhere still works.
file(RELATIVE_PATH VEXA_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(cmake/vexamonitor.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vexamonitor.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vexamonitor.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
