# What writes Arrow streams and checks them: C of others, without our warnings, and nothing of it is exported.
enable_language(C)
set(_nanoarrow ${PROJECT_SOURCE_DIR}/third_party/nanoarrow)
add_library(tivra_nanoarrow STATIC
  ${_nanoarrow}/flatcc/runtime/builder.c
  ${_nanoarrow}/flatcc/runtime/emitter.c
  ${_nanoarrow}/flatcc/runtime/refmap.c
  ${_nanoarrow}/flatcc/runtime/verifier.c
  ${_nanoarrow}/nanoarrow/common/array.c
  ${_nanoarrow}/nanoarrow/common/schema.c
  ${_nanoarrow}/nanoarrow/common/utils.c
  ${_nanoarrow}/nanoarrow/ipc/codecs.c
  ${_nanoarrow}/nanoarrow/ipc/decoder.c
  ${_nanoarrow}/nanoarrow/ipc/encoder.c)
target_include_directories(tivra_nanoarrow SYSTEM PUBLIC ${_nanoarrow})
# Else its headers export all of it.
target_compile_definitions(tivra_nanoarrow PUBLIC NANOARROW_DLL=)
set_target_properties(tivra_nanoarrow PROPERTIES C_STANDARD 99 C_VISIBILITY_PRESET hidden)
if(TIVRA_CCACHE)
  set_target_properties(tivra_nanoarrow PROPERTIES C_COMPILER_LAUNCHER ${TIVRA_CCACHE})
endif()
if(TIVRA_SANITIZE MATCHES "address")
  target_compile_options(tivra_nanoarrow PRIVATE -fsanitize=address)
endif()
if(TIVRA_BUILD_FUZZ)
  target_compile_options(tivra_nanoarrow PRIVATE -fsanitize=fuzzer-no-link)
endif()
