# The module exports the nine functions of the client contract and no other.
execute_process(COMMAND nm -D --defined-only ${MODULE}
  OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${MODULE}")
endif()
string(REGEX MATCHALL "[0-9a-f]+ [TtWi] [A-Za-z_0-9]+" lines "${out}")
set(functions "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-f]+ [TtWi] " "" name "${line}")
  list(APPEND functions ${name})
endforeach()
list(SORT functions)
set(expected
  GetZyrObject ZyrGetLogObject ZyrLogLibraryReconfigure ZyrLogLibraryReloadConfig
  ZyrLogLibraryRemoteReconfigure ZyrLogLibraryRemoteReloadConfig ZyrModuleFinish
  ZyrModuleInit ZyrReleaseLogObject)
list(SORT expected)
if(NOT functions STREQUAL expected)
  message(FATAL_ERROR "exported functions: ${functions}\nexpected: ${expected}")
endif()
message(STATUS "exports ok: ${functions}")
