# Finds ISA-L, asking pkg-config where it is there: ISAL_FOUND, ISAL_VERSION, ISAL_HAS_PKG_CONFIG and the target ISAL::ISAL.
find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(_ISAL QUIET libisal)
endif()
find_path(ISAL_INCLUDE_DIR isa-l/igzip_lib.h HINTS ${_ISAL_INCLUDE_DIRS})
find_library(ISAL_LIBRARY NAMES isal HINTS ${_ISAL_LIBRARY_DIRS})
mark_as_advanced(ISAL_INCLUDE_DIR ISAL_LIBRARY)
set(ISAL_VERSION ${_ISAL_VERSION})
set(ISAL_HAS_PKG_CONFIG ${_ISAL_FOUND})

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ISAL REQUIRED_VARS ISAL_LIBRARY ISAL_INCLUDE_DIR VERSION_VAR ISAL_VERSION)
if(ISAL_FOUND AND NOT TARGET ISAL::ISAL)
  add_library(ISAL::ISAL UNKNOWN IMPORTED)
  set_target_properties(ISAL::ISAL PROPERTIES
    IMPORTED_LOCATION ${ISAL_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${ISAL_INCLUDE_DIR})
endif()
