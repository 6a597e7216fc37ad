# Installs what BUILD holds into a folder of its own and looks whether all that people need is there and works.
set(folder ${BUILD}/installed)
file(REMOVE_RECURSE ${folder})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${folder} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
foreach(name bin/Tovi bin/tovi share/bash-completion/completions/tovi share/zsh/site-functions/_tovi
        share/fish/vendor_completions.d/tovi.fish share/man/man1/tovi.1)
  file(SIZE ${folder}/${name} size)  # an error where it is missing
  if(size EQUAL 0)
    message(FATAL_ERROR "${name} is empty")
  endif()
endforeach()
if(NOT IS_SYMLINK ${folder}/bin/tovi)
  message(FATAL_ERROR "bin/tovi is a copy of the program")
endif()
execute_process(COMMAND ${folder}/bin/tovi help OUTPUT_VARIABLE help COMMAND_ERROR_IS_FATAL ANY)
if(NOT help MATCHES "^tovi: keep your Mac awake")
  message(FATAL_ERROR "the installed tovi doesn't answer as the command line tool: ${help}")
endif()
