# SPDX-License-Identifier: MIT
# log_source(NAME TARGET FILE...): the log lines of these files of a component name NAME as their
# source, whichever file they stand in. So that NAME and the line that is printed lead to one
# statement, each file's lines have a thousand numbers of their own: the printed line is the
# statement's own plus 1000 times the file's place in the list. A file called NAME is at place 0; the
# others count from 1. New files go to the end of the list, so that the others keep their numbers.
function(log_source name target)
  target_compile_definitions(${target} PRIVATE LOG_SOURCE="${name}")
  set(place 0)
  foreach(file ${ARGN})
    if(file STREQUAL name)
      set(base 0)
    else()
      math(EXPR place "${place} + 1")
      math(EXPR base "1000 * ${place}")
    endif()
    set_property(SOURCE ${file} APPEND PROPERTY COMPILE_DEFINITIONS LOG_BASE=${base})
  endforeach()
endfunction()
