# What `cmake --install` gives: the shared library, the public headers under include/tivra, a CMake package and a
# pkg-config file, and where they are built the simulator and the tools.
include(CMakePackageConfigHelpers)

set(_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tivra)

install(TARGETS tivra EXPORT tivraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tivra)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tivra
  FILES_MATCHING PATTERN "*.h")
install(EXPORT tivraTargets NAMESPACE tivra:: DESTINATION ${_package_dir})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tivraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tivraConfig.cmake INSTALL_DESTINATION ${_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tivraConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tivraConfig.cmake ${PROJECT_BINARY_DIR}/tivraConfigVersion.cmake
  DESTINATION ${_package_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/tivra.pc.in ${PROJECT_BINARY_DIR}/tivra.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tivra.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
