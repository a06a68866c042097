# zyrlog-check against its cases: each check/NAME.cfg prints exactly
# check/NAME.expected (its findings, then "status N"), and prints nothing
# with --quiet while giving the same status. Every configuration in the
# examples and the built-in default must be clean.
# Arguments: -DTOOL=... -DCASES=... -DEXAMPLES=...
set(failures "")
file(GLOB cases RELATIVE ${CASES} ${CASES}/*.cfg)
foreach(cfg IN LISTS cases)
  string(REGEX REPLACE "\\.cfg$" ".expected" expectedFile ${cfg})
  file(READ ${CASES}/${expectedFile} expected)
  execute_process(COMMAND ${TOOL} ${cfg} WORKING_DIRECTORY ${CASES}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out)
  set(got "${out}status ${rc}\n")
  if(NOT got STREQUAL expected)
    string(APPEND failures "${cfg}: expected\n${expected}got\n${got}\n")
  endif()
  execute_process(COMMAND ${TOOL} --quiet ${cfg} WORKING_DIRECTORY ${CASES}
    RESULT_VARIABLE quietRc OUTPUT_VARIABLE quietOut)
  if(NOT quietRc EQUAL rc OR NOT quietOut STREQUAL "")
    string(APPEND failures "${cfg} --quiet: status ${quietRc}, output '${quietOut}'\n")
  endif()
endforeach()
file(GLOB_RECURSE examples ${EXAMPLES}/*.cfg)
execute_process(COMMAND ${TOOL} --default ${examples} RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out STREQUAL "")
  string(APPEND failures "the built-in default and the examples must be clean:\n${out}status ${rc}\n")
endif()
if(failures)
  message(FATAL_ERROR "${failures}")
endif()
list(LENGTH cases n)
list(LENGTH examples e)
message(STATUS "zyrlog-check: ${n} cases, ${e} example configurations and the default as expected")
