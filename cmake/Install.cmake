# The installable package: include/, lib/ (import libraries for GCC's and Microsoft's
# linkers), bin/ (the DLLs and the
# programs) and a CMake package configuration for find_package(kovra CONFIG).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# tarnel31 goes into the export set with kovra: kovra.dll imports from it, so a consumer's
# link and its run-time search know the environment library as kovra::tarnel31.
install(TARGETS kovra tarnel31 EXPORT kovraTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
# kovra.lib beside libkovra.dll.a: the import library for Microsoft's linker, made when
# llvm-dlltool is there (src/CMakeLists.txt).
if(KOVRA_LLVM_DLLTOOL)
  install(FILES ${KOVRA_MSVC_IMPORT_LIBRARY} DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(TARGETS kovramon kovra_handle kovra_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/kovra DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(KOVRA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kovra)
install(EXPORT kovraTargets NAMESPACE kovra:: DESTINATION ${KOVRA_CMAKE_DIR})
configure_package_config_file(cmake/kovraConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/kovraConfig.cmake
  INSTALL_DESTINATION ${KOVRA_CMAKE_DIR}
  PATH_VARS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/kovraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kovraConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/kovraConfigVersion.cmake
  DESTINATION ${KOVRA_CMAKE_DIR})
