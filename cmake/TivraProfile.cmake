# Optimising the library's own objects by a profile of a training run (TIVRA_PGO), which the build makes first, in a
# build of its own below this one.
if(TIVRA_PGO AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  message(FATAL_ERROR "TIVRA_PGO needs g++")
endif()

add_library(tivra_profile INTERFACE)
set(_training ${PROJECT_BINARY_DIR}/training)
if(TIVRA_PGO STREQUAL "TRAIN")
  # Several threads count at once. The names of files are relative, since the other build has another place.
  target_compile_options(tivra_profile INTERFACE -fprofile-generate=${PROJECT_BINARY_DIR}/profile -fprofile-update=atomic
    -fprofile-prefix-path=${PROJECT_BINARY_DIR})
  target_link_options(tivra_flags INTERFACE -fprofile-generate)
elseif(TIVRA_PGO STREQUAL "USE")
  # What the training doesn't reach is compiled as without it, and not for size.
  target_compile_options(tivra_profile INTERFACE -fprofile-use=${_training}/profile -fprofile-partial-training
    -fprofile-prefix-path=${PROJECT_BINARY_DIR} -Wno-missing-profile -Wno-error=coverage-mismatch)
  file(GLOB_RECURSE _sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp ${PROJECT_SOURCE_DIR}/src/*.h
    ${PROJECT_SOURCE_DIR}/src/*.inl ${PROJECT_SOURCE_DIR}/shared/*.cpp ${PROJECT_SOURCE_DIR}/shared/*.h)
  set(_profile ${_training}/profile.made)
  add_custom_command(OUTPUT ${_profile}
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${_training}/profile
    COMMAND ${CMAKE_COMMAND} -S ${PROJECT_SOURCE_DIR} -B ${_training} -G ${CMAKE_GENERATOR}
      -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER} -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE} -DTIVRA_PGO=TRAIN
      -DTIVRA_ISAL=${TIVRA_ISAL} -DTIVRA_TLS=${TIVRA_TLS} -DTIVRA_BUILD_TESTS=OFF -DTIVRA_BUILD_EXAMPLES=OFF
    COMMAND ${CMAKE_COMMAND} --build ${_training} --target tivra-cat tivra-hub
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/train ${_training}
    COMMAND ${CMAKE_COMMAND} -E touch ${_profile}
    DEPENDS ${_sources} ${PROJECT_SOURCE_DIR}/scripts/train
    COMMENT "Making the profile: an instrumented build, and the sample day through it"
    USES_TERMINAL VERBATIM)
  add_custom_target(tivra_training DEPENDS ${_profile})
elseif(TIVRA_PGO)
  message(FATAL_ERROR "TIVRA_PGO is ${TIVRA_PGO}, not TRAIN or USE")
endif()

# tivra_optimise(<object library>)
function(tivra_optimise target)
  target_link_libraries(${target} PRIVATE tivra_profile)
  if(TARGET tivra_training)
    add_dependencies(${target} tivra_training)
    # A compiler cache may not see that the profile is another one.
    set_target_properties(${target} PROPERTIES CXX_COMPILER_LAUNCHER "")
    get_target_property(_own ${target} SOURCES)
    set_source_files_properties(${_own} TARGET_DIRECTORY ${target} PROPERTIES OBJECT_DEPENDS ${_profile})
  endif()
endfunction()
