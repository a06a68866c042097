# The NT build: zyrloga.dll over src/base/nt, whose only import is
# ntdll.dll, and the portable tests as Windows programs that
# tools/test-windows.sh runs under wine.

# The module has no language runtime: no exceptions, no type information,
# no guarded local statics (the base's start-up state is made at process
# attach, before any second thread exists).
set(ZYR_NT_MODULE_FLAGS -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-stack-protector)
# The system's defaults would put kernel32 and its kin on every link line.
set(CMAKE_C_STANDARD_LIBRARIES "" CACHE STRING "" FORCE)
set(CMAKE_CXX_STANDARD_LIBRARIES "" CACHE STRING "" FORCE)

add_library(zyr_objects OBJECT ${ZYR_SOURCES})
target_include_directories(zyr_objects PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(zyr_objects PUBLIC ${ZYR_LAYER_DEFINITION})
target_compile_options(zyr_objects PRIVATE ${ZYR_NT_MODULE_FLAGS})

# -nostdlib: the import library of the ntdll functions that src/base/nt/ntdll.def
# names (native calls, and memcpy and its kin for what the compiler emits),
# and the compiler's own support library, which imports nothing (the stack
# probe of large frames).
find_program(ZYR_DLLTOOL NAMES x86_64-w64-mingw32-dlltool REQUIRED)
set(ZYR_NTDLL_IMPORTS ${CMAKE_BINARY_DIR}/libzyr_ntdll.a)
add_custom_command(OUTPUT ${ZYR_NTDLL_IMPORTS}
  COMMAND ${ZYR_DLLTOOL} -d ${PROJECT_SOURCE_DIR}/src/base/nt/ntdll.def -D ntdll.dll -l ${ZYR_NTDLL_IMPORTS}
  DEPENDS ${PROJECT_SOURCE_DIR}/src/base/nt/ntdll.def)
add_custom_target(zyr_ntdll_imports DEPENDS ${ZYR_NTDLL_IMPORTS})
add_library(zyrloga SHARED $<TARGET_OBJECTS:zyr_objects>
  ${PROJECT_SOURCE_DIR}/src/base/nt/runtime/runtime_nt.cpp
  ${PROJECT_SOURCE_DIR}/src/module/zyrloga.def)
target_include_directories(zyrloga PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(zyrloga PRIVATE ${ZYR_LAYER_DEFINITION})
target_compile_options(zyrloga PRIVATE ${ZYR_NT_MODULE_FLAGS})
set_target_properties(zyrloga PROPERTIES PREFIX "" OUTPUT_NAME zyrloga IMPORT_PREFIX "lib")
target_link_options(zyrloga PRIVATE -nostdlib -Wl,--entry,ZyrModuleEntry -Wl,--no-undefined
  -Wl,--exclude-all-symbols)
add_dependencies(zyrloga zyr_ntdll_imports)
target_link_libraries(zyrloga PRIVATE ${ZYR_NTDLL_IMPORTS} gcc)

add_library(zyr_static STATIC $<TARGET_OBJECTS:zyr_objects>)
target_include_directories(zyr_static PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(zyr_static PUBLIC ${ZYR_LAYER_DEFINITION})
target_link_libraries(zyr_static PUBLIC ntdll)

if(ZYR_BUILD_TESTS)
  include(${PROJECT_SOURCE_DIR}/tests/windows/tests.cmake)
endif()
