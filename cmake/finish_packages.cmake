# What Debian asks for beyond the installed trees, in the trees that become packages: manual pages and
# changelogs compressed, and nothing in programs and libraries that only names the compiler.
set(trees "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr")
file(GLOB pages "${trees}/share/man/man*/*.[1-8]" "${trees}/share/doc/*/changelog"
  "${trees}/share/doc/*/changelog.Debian")
file(GLOB programs "${trees}/bin/*")
file(GLOB_RECURSE libraries "${trees}/lib/*.a")
if(NOT pages OR NOT programs OR NOT libraries)
  message(FATAL_ERROR "the packages lack something below ${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
endif()
execute_process(COMMAND gzip -9nf ${pages} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CPACK_STRIP}" --strip-unneeded --remove-section=.comment
  --remove-section=.note ${programs} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CPACK_STRIP}" --strip-debug --enable-deterministic-archives
  --remove-section=.comment ${libraries} COMMAND_ERROR_IS_FATAL ANY)
