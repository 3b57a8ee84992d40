# Manual pages and completions, which each program makes of its options: they say what its --help says.
include(GNUInstallDirs)

# TOOL is the target of a program that knows --generate.
function(tivra_tool_text tool)
  set(folder ${PROJECT_BINARY_DIR}/tooltext)
  foreach(kind IN ITEMS man:${tool}.1 bash:${tool} zsh:_${tool} fish:${tool}.fish)
    string(REPLACE ":" ";" pair ${kind})
    list(GET pair 0 what)
    list(GET pair 1 name)
    set(file ${folder}/${what}/${name})
    add_custom_command(OUTPUT ${file}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}/${what}
      COMMAND ${tool} --generate ${what} > ${file}
      DEPENDS ${tool} VERBATIM)
    list(APPEND files ${file})
  endforeach()
  add_custom_target(${tool}_text ALL DEPENDS ${files})
  install(FILES ${folder}/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${folder}/bash/${tool} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${folder}/zsh/_${tool} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES ${folder}/fish/${tool}.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endfunction()
