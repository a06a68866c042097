# The tests as Windows programs, which tools/test-windows.sh runs under wine
# (not through CTest: one start of wine per program, not per test). They
# link the full C and C++ runtime statically; only the module goes without.
set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

# The unit tests that need nothing of Linux: the portable rules.
set(ZYR_WINDOWS_UNIT_TESTS cfg_document cfg_reader client client_helper config_apply config_reference config_save
  custom_layout format path record scramble severity
  string textconv)
list(TRANSFORM ZYR_WINDOWS_UNIT_TESTS REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/tests/unit/\\1_test.cpp")
add_executable(zyr_unit_tests ${ZYR_WINDOWS_UNIT_TESTS})
target_link_libraries(zyr_unit_tests PRIVATE zyr_static gtest gtest_main)
target_compile_definitions(zyr_unit_tests PRIVATE ZYR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
target_link_options(zyr_unit_tests PRIVATE -static)

# What only this platform has: the module loaded by a client, files shared
# between processes, folder notification, the registry, descriptors.
file(GLOB ZYR_WINDOWS_TESTS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/windows/*_test.cpp)
list(FILTER ZYR_WINDOWS_TESTS EXCLUDE REGEX "/module_test\\.cpp$")
if(ZYR_WINDOWS_TESTS)
  add_executable(zyr_windows_tests ${ZYR_WINDOWS_TESTS})
  target_link_libraries(zyr_windows_tests PRIVATE zyr_static gtest gtest_main advapi32)
  target_link_options(zyr_windows_tests PRIVATE -static)
endif()

# A client that knows the library only through zyrlog.h and loads the module.
add_executable(zyr_module_tests ${PROJECT_SOURCE_DIR}/tests/windows/module_test.cpp)
target_include_directories(zyr_module_tests PRIVATE ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(zyr_module_tests PRIVATE gtest)
target_link_options(zyr_module_tests PRIVATE -static)
add_dependencies(zyr_module_tests zyrloga)

add_custom_target(zyr_windows_all DEPENDS zyrloga zyr_unit_tests zyr_windows_tests zyr_module_tests)
