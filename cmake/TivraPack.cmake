# `cpack` in a build folder makes an archive of what `cmake --install` gives; unpacked, it works wherever it is.
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_VENDOR tivra)
set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
