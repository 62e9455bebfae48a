# What an installation holds, in four components: runtime (the libraries), dev (headers, CMake package, pkg-config),
# tools (the programs) and doc. No step runs a program of the target, so cross builds install as native ones do.

include(CMakePackageConfigHelpers)

set(zel_header_dir "${CMAKE_INSTALL_INCLUDEDIR}/zelSysMgrApi")
set(zel_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/zelSysMgrApi")

install(
  TARGETS zelCommonTypes zelSysMgrApi
  EXPORT zelSysMgrApiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  FILE_SET HEADERS DESTINATION ${zel_header_dir} COMPONENT dev)
install(
  EXPORT zelSysMgrApiTargets
  NAMESPACE zelSysMgrApi::
  DESTINATION ${zel_package_dir}
  COMPONENT dev)

configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/zelSysMgrApiConfig.cmake.in" "${PROJECT_BINARY_DIR}/zelSysMgrApiConfig.cmake"
  INSTALL_DESTINATION ${zel_package_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/zelSysMgrApiConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(
  FILES "${PROJECT_BINARY_DIR}/zelSysMgrApiConfig.cmake" "${PROJECT_BINARY_DIR}/zelSysMgrApiConfigVersion.cmake"
        "${PROJECT_SOURCE_DIR}/cmake/FindZeroMQ.cmake"
  DESTINATION ${zel_package_dir}
  COMPONENT dev)

foreach(library zelCommonTypes zelSysMgrApi)
  configure_file("${PROJECT_SOURCE_DIR}/packaging/${library}.pc.in" "${PROJECT_BINARY_DIR}/${library}.pc" @ONLY)
  install(
    FILES "${PROJECT_BINARY_DIR}/${library}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT dev)
endforeach()

if(TARGET sysmgrctl)
  install(TARGETS sysmgrctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
if(TARGET sysmgr-sim)
  install(TARGETS sysmgr-sim RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT simulator)
endif()
