# Install rules: the public headers (the contract's and the front door's), zyrloga.so with its SONAME and version
# links, libzyrloga.so for -lzyrloga, a CMake package (find_package(zyrlog)
# gives zyrlog::zyrlog) and zyrlog.pc for pkg-config.
include(CMakePackageConfigHelpers)

set(ZYR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zyrlog)

install(TARGETS zyrloga EXPORT zyrlogTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/zyrlog
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
# The linker's name, beside the module's own name that the namelink gives.
install(CODE "
  set(dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")
  file(CREATE_LINK zyrloga.so.${PROJECT_VERSION_MAJOR} \"\${dir}/libzyrloga.so\" SYMBOLIC)
  message(STATUS \"Installing: \${dir}/libzyrloga.so\")
" COMPONENT development)

install(EXPORT zyrlogTargets NAMESPACE zyrlog:: DESTINATION ${ZYR_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/zyrlogConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zyrlogConfig.cmake INSTALL_DESTINATION ${ZYR_CMAKE_DIR})
# 0.x releases promise nothing to each other; from 1.0 on the major number
# carries compatibility, as the SONAME does.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zyrlogConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zyrlogConfig.cmake ${PROJECT_BINARY_DIR}/zyrlogConfigVersion.cmake
  DESTINATION ${ZYR_CMAKE_DIR} COMPONENT development)

# zyrlog.pc is written when it is installed, since `cmake --install --prefix`
# may choose another prefix than the configure step did. Folders below the
# prefix are given as ${prefix}/..., absolute ones as they are.
set(ZYR_PC_DIRS "")
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    string(APPEND ZYR_PC_DIRS "set(ZYR_PC_${kind} \"${CMAKE_INSTALL_${kind}}\")\n")
  else()
    string(APPEND ZYR_PC_DIRS "set(ZYR_PC_${kind} \"\\\${prefix}/${CMAKE_INSTALL_${kind}}\")\n")
  endif()
endforeach()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(ZYR_PC_DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
else()
  set(ZYR_PC_DESTINATION "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endif()
install(CODE "
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  set(ZYR_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  ${ZYR_PC_DIRS}
  configure_file(\"${CMAKE_CURRENT_LIST_DIR}/zyrlog.pc.in\" \"${PROJECT_BINARY_DIR}/zyrlog.pc\" @ONLY)
  file(INSTALL \"${PROJECT_BINARY_DIR}/zyrlog.pc\" DESTINATION \"${ZYR_PC_DESTINATION}\")
" COMPONENT development)

# The rsyslog shipper and receiver configurations and the rulebase of the
# Standard line (docs/collection.md).
install(FILES ${PROJECT_SOURCE_DIR}/tools/rsyslog/zyrlog-shipper.conf
              ${PROJECT_SOURCE_DIR}/tools/rsyslog/zyrlog-receiver.conf
              ${PROJECT_SOURCE_DIR}/tools/rsyslog/zyrlog-standard.rulebase
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zyrlog/rsyslog COMPONENT runtime)
