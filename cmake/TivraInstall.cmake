# What `cmake --install` gives: the library, the public headers under include/tivra, a CMake package and a
# pkg-config file, and where they are built the simulator and the tools.
include(CMakePackageConfigHelpers)

set(_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tivra)

install(TARGETS tivra EXPORT tivraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tivra
  FILES_MATCHING PATTERN "*.h")
install(EXPORT tivraTargets NAMESPACE tivra:: DESTINATION ${_package_dir})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tivraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tivraConfig.cmake INSTALL_DESTINATION ${_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tivraConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tivraConfig.cmake ${PROJECT_BINARY_DIR}/tivraConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/FindISAL.cmake
  DESTINATION ${_package_dir})

# An installation can be moved as a whole, unless the libraries have a place of their own.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(TIVRA_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH _up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" _up ${_up})
  set(TIVRA_PC_PREFIX "\${pcfiledir}/${_up}")
endif()
foreach(_dir LIBDIR INCLUDEDIR)
  set(TIVRA_PC_${_dir} "\${prefix}")
  cmake_path(APPEND TIVRA_PC_${_dir} ${CMAKE_INSTALL_${_dir}}) # an absolute one replaces the prefix
endforeach()
if(TIVRA_LIBRARY_TYPE STREQUAL "STATIC")
  set(TIVRA_PC_REQUIRES zlib)
  set(TIVRA_PC_LIBS " -pthread -ldl")
  if(TIVRA_WITH_ISAL AND ISAL_HAS_PKG_CONFIG)
    string(APPEND TIVRA_PC_REQUIRES " libisal")
  elseif(TIVRA_WITH_ISAL)
    string(PREPEND TIVRA_PC_LIBS " ${ISAL_LIBRARY}")
  endif()
endif()
if(TIVRA_LIBRARY_TYPE STREQUAL "STATIC" AND TIVRA_WITH_TLS)
  string(APPEND TIVRA_PC_REQUIRES " openssl")
endif()
if(TIVRA_WITH_ISAL)
  set(TIVRA_PC_PRIVATE_LIBS "-lisal ")
endif()
if(TIVRA_WITH_TLS)
  string(APPEND TIVRA_PC_PRIVATE_LIBS "-lssl -lcrypto ")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/tivra.pc.in ${PROJECT_BINARY_DIR}/tivra.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tivra.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Installed programs find the library wherever both are moved to.
if(TIVRA_LIBRARY_TYPE STREQUAL "SHARED")
  file(RELATIVE_PATH _libdir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(CMAKE_INSTALL_RPATH $ORIGIN/${_libdir})
  if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    list(APPEND CMAKE_INSTALL_RPATH ${CMAKE_INSTALL_LIBDIR})
  endif()
endif()
