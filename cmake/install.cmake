# Install rules: the public headers, zyrloga.so with its SONAME and version
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

configure_file(${CMAKE_CURRENT_LIST_DIR}/zyrlog.pc.in ${PROJECT_BINARY_DIR}/zyrlog.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zyrlog.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The rsyslog shipper and receiver configurations and the rulebase of the
# Standard line (docs/collection.md).
install(FILES ${PROJECT_SOURCE_DIR}/tools/rsyslog/zyrlog-shipper.conf
              ${PROJECT_SOURCE_DIR}/tools/rsyslog/zyrlog-receiver.conf
              ${PROJECT_SOURCE_DIR}/tools/rsyslog/zyrlog-standard.rulebase
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zyrlog/rsyslog COMPONENT runtime)
