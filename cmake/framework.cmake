# The framework-bound log client, for modules of the suite that want a log
# without linking zyrloga.so: the client itself, with the base and the
# object broker taken from the library's static objects (a module links
# only what the client reaches). Kept out of zyrloga.so.
add_library(zyr_framework STATIC ${PROJECT_SOURCE_DIR}/src/client/framework_client.cpp)
target_include_directories(zyr_framework PUBLIC
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_options(zyr_framework PRIVATE -fvisibility=hidden -fvisibility-inlines-hidden)
target_link_libraries(zyr_framework PUBLIC zyr_static Threads::Threads ${CMAKE_DL_LIBS})
# Its calls go through interface tables of another copy of the library,
# which the undefined-behaviour sanitizer's type check cannot follow.
if(ZYR_SANITIZE STREQUAL "address")
  target_compile_options(zyr_framework PRIVATE -fno-sanitize=vptr)
endif()
