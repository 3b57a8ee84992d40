# Flags that every target of this tree shares, as one interface target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(TIVRA_CCACHE ccache)
if(TIVRA_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${TIVRA_CCACHE})
  if(TIVRA_QUICK_BUILD)
    # Without this it would keep nothing that uses a precompiled header.
    list(PREPEND CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros)
  endif()
endif()

# tivra_precompile(<target> <header>...)
function(tivra_precompile target)
  if(TIVRA_QUICK_BUILD)
    target_precompile_headers(${target} PRIVATE ${ARGN})
    # ccache needs to see which header it was, and a time in it would be another at each build.
    target_compile_options(${target} PRIVATE
      $<IF:$<CXX_COMPILER_ID:GNU>,-fpch-preprocess,SHELL:-Xclang -fno-pch-timestamp>)
  endif()
endfunction()

# A source that another one includes looks like a header, whose types must not rest on anonymous ones.
set(TIVRA_JOINED_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)

# tivra_join(<target>...): for sources of which each needs longer for what it includes than for its own lines.
function(tivra_join)
  if(TIVRA_QUICK_BUILD)
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 9)
    foreach(_target IN LISTS ARGN)
      target_compile_options(${_target} PRIVATE ${TIVRA_JOINED_OPTIONS})
    endforeach()
  endif()
endfunction()

# tivra_join_library(<target>...): the same, but the release is tested as users build it.
function(tivra_join_library)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Release")
    tivra_join(${ARGN})
  endif()
endfunction()

add_library(tivra_flags INTERFACE)
target_compile_options(tivra_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
  -Wformat=2 -Wcast-qual -Wold-style-cast
  # A contracted multiply-add changes decoded values.
  -ffp-contract=off
  -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(tivra_flags INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()
if(TIVRA_WARNINGS_AS_ERRORS)
  target_compile_options(tivra_flags INTERFACE -Werror)
endif()
if(TIVRA_SANITIZE)
  target_compile_options(tivra_flags INTERFACE -fsanitize=${TIVRA_SANITIZE} -fno-sanitize-recover=undefined)
  target_link_options(tivra_flags INTERFACE -fsanitize=${TIVRA_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND TIVRA_SANITIZE MATCHES "undefined" AND NOT TIVRA_BUILD_FUZZ)
    # The library of connection managers has structures of its own for what ours describe, and an application's level
    # of a log line may be any number. What reads a hub's bytes is watched for both all the same: by the fuzz targets.
    target_compile_options(tivra_flags INTERFACE -fno-sanitize=function,enum)
  endif()
endif()
if(TIVRA_CHECK_LOCK_ORDER)
  target_compile_definitions(tivra_flags INTERFACE TP_CHECK_LOCK_ORDER=1)
endif()
