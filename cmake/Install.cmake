# The installable package: include/, lib/ (import library), bin/ (DLLs and programs)
# and a CMake package configuration for find_package(kovra CONFIG).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS kovra EXPORT kovraTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS tarnel31 kovramon kovra_handle kovra_cli
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/tarnel31)
install(DIRECTORY include/kovra DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT kovraTargets NAMESPACE kovra:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kovra)
configure_package_config_file(cmake/kovraConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/kovraConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kovra)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/kovraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kovraConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/kovraConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kovra)
