# No thread_local with a destructor in the module: registering such a
# destructor allocates, and the language runtime ends the process when it
# cannot (an out-of-memory abort as the worker starts). Per-thread data with
# a cleanup goes through the base's own slots (src/base/tls.h).
execute_process(COMMAND nm -D --undefined-only ${MODULE}
  OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${MODULE}")
endif()
if(out MATCHES "__cxa_thread_atexit")
  message(FATAL_ERROR "the module registers thread_local destructors (__cxa_thread_atexit)")
endif()
message(STATUS "no thread_local destructors")
