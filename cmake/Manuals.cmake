# Manual pages and shell completion: the build runs the programs and installs what they print.
find_program(GZIP gzip REQUIRED)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/printed)
add_custom_target(manuals ALL)

# printed_file(NAME DESTINATION PROGRAM COMMAND...): installs the output of COMMAND, which runs PROGRAM. Compresses
# manual pages.
function(printed_file name destination program)
  set(file ${CMAKE_BINARY_DIR}/printed/${name})
  set(installed ${file})
  if(name MATCHES "\\.1$")
    set(installed ${file}.gz)
    set(compress COMMAND ${GZIP} --best --no-name --force ${file})
  endif()
  add_custom_command(OUTPUT ${installed} COMMAND ${ARGN} > ${file} ${compress} DEPENDS ${program} VERBATIM)
  add_custom_target(printed-${name} DEPENDS ${installed})
  add_dependencies(manuals printed-${name})
  install(FILES ${installed} DESTINATION ${destination})
endfunction()

# manual_page(PROGRAM "a summary in a few words")
function(manual_page program summary)
  # help2man expects one word, which it passes to a shell.
  string(JOIN " " command ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${program}>)
  printed_file(${program}.1 ${CMAKE_INSTALL_MANDIR}/man1 ${program}
    ${HELP2MAN} --no-info --section=1 --name=${summary} "${command}")
endfunction()

manual_page(engineering-service "the engineering service on the bench")
printed_file(engineering-station.1 ${CMAKE_INSTALL_MANDIR}/man1 engineering-station engineering-station man)
printed_file(engineering-station ${CMAKE_INSTALL_DATADIR}/bash-completion/completions engineering-station
  engineering-station completion bash)
printed_file(_engineering-station ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions engineering-station
  engineering-station completion zsh)
printed_file(engineering-station.fish ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d engineering-station
  engineering-station completion fish)
manual_page(engineering-hmi "stand-in for a head unit's HMI")
manual_page(engineering-line "a serial line that fails on purpose")
manual_page(headunitctl "the simulated head unit's controls")
