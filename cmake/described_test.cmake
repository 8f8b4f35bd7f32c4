# SPDX-License-Identifier: MIT
# add_described_test(FILE LABEL COMMAND...): a test named for a Python file, which may say of itself, each on a
# line of its own among its first ones:
#   # labels: concurrent        further labels
#   # timeout: 900              seconds, 600 unless told otherwise: for a hang, never for slowness
#   # not sanitized: REASON     it is left out of builds with a sanitizer
#   # only sanitized: REASON    it is left out of builds without AddressSanitizer
function(add_described_test file label)
  get_filename_component(name ${file} NAME_WE)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  set(labels ${label})
  set(timeout 600)
  file(STRINGS ${file} said REGEX "^# (labels|timeout|not sanitized|only sanitized): ")
  if((QUOR_SANITIZE AND said MATCHES "# not sanitized: ") OR
     (NOT QUOR_SANITIZE MATCHES address AND said MATCHES "# only sanitized: "))
    return()
  endif()
  foreach(line ${said})
    if(line MATCHES "^# labels: (.*)")
      string(REPLACE " " ";" more "${CMAKE_MATCH_1}")
      list(APPEND labels ${more})
    elseif(line MATCHES "^# timeout: ([0-9]+)")
      set(timeout ${CMAKE_MATCH_1})
    endif()
  endforeach()
  add_test(NAME ${name} COMMAND ${ARGN})
  set_tests_properties(${name} PROPERTIES
    LABELS "${labels}" TIMEOUT ${timeout} SKIP_RETURN_CODE 77
    ENVIRONMENT "QUOR_BUILD=${CMAKE_BINARY_DIR}")
endfunction()
