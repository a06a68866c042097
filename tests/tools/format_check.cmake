# Compiles format_check.cpp once per CASE: CASE 0 must compile, every other
# must fail, naming its fault. Arguments: -DCXX=... -DINCLUDE=... -DSOURCE=...
set(expected
  "(compiles)"
  "s_needs_utf16_text"
  "too_few_arguments"
  "more_arguments_than_the_format_uses"
  "s_needs_utf16_text"
  "hs_needs_narrow"
  "integer_conversion_needs"
  "integer_conversion_needs"
  "a_64_bit_integer_needs"
  "a_64_bit_integer_needs"
  "floating_conversion_needs"
  "Z_and_wZ_need"
  "star_width_or_precision"
  "c_needs_a_character"
  "typed_items_belong_in_ZYR_LOG_TYPED"
  "more_arguments_than_the_format_uses"
  "argument_type_unknown")
list(LENGTH expected cases)
math(EXPR last "${cases} - 1")
set(failures "")
foreach(case RANGE ${last})
  list(GET expected ${case} want)
  execute_process(
    COMMAND ${CXX} -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I${INCLUDE} -DCASE=${case} ${SOURCE}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(case EQUAL 0)
    if(NOT rc EQUAL 0)
      string(APPEND failures "case 0 (correct calls) does not compile:\n${out}\n")
    endif()
  elseif(rc EQUAL 0)
    string(APPEND failures "case ${case} compiles, but must fail with ${want}\n")
  elseif(NOT out MATCHES "${want}")
    string(APPEND failures "case ${case} fails without naming ${want}:\n${out}\n")
  endif()
endforeach()
if(failures)
  message(FATAL_ERROR "${failures}")
endif()
message(STATUS "format checks: ${cases} cases as expected")
