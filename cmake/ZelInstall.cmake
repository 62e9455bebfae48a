# What an installation holds, in six components: runtime (the libraries), dev (headers, CMake package, pkg-config),
# tools (the command line), simulator, simulator-dev (the kit for the tests of applications), doc. No step runs a program of the target, so cross builds install as native ones
# do.

include(CMakePackageConfigHelpers)

set(zel_header_dir "${CMAKE_INSTALL_INCLUDEDIR}/zelSysMgrApi")
set(zel_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/zelSysMgrApi")

# The prefix is written into files below, and `cmake --install --prefix` may name it as seen from the current folder.
install(CODE "cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX NORMALIZE)" ALL_COMPONENTS)

# Wherever the installation lies, its programs and libraries find the libraries beside them, without ldconfig. A package
# for folders that the dynamic linker searches anyway switches it off with CMAKE_SKIP_INSTALL_RPATH.
file(RELATIVE_PATH zel_libraries_from_programs "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set_property(TARGET zelSysMgrApi APPEND PROPERTY INSTALL_RPATH "$ORIGIN")
foreach(program sysmgrctl sysmgr-sim sysmgr-conformance)
  if(TARGET ${program})
    set_property(TARGET ${program} APPEND PROPERTY INSTALL_RPATH "$ORIGIN/${zel_libraries_from_programs}")
  endif()
endforeach()

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
  PATH_VARS CMAKE_INSTALL_BINDIR
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/zelSysMgrApiConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(
  FILES "${PROJECT_BINARY_DIR}/zelSysMgrApiConfig.cmake" "${PROJECT_BINARY_DIR}/zelSysMgrApiConfigVersion.cmake"
        "${PROJECT_SOURCE_DIR}/cmake/FindJsonCpp.cmake" "${PROJECT_SOURCE_DIR}/cmake/FindZeroMQ.cmake"
  DESTINATION ${zel_package_dir}
  COMPONENT dev)

# A .pc file names the prefix, which `cmake --install --prefix` may still change: it is written then.
set(zel_pc_prefix "@CMAKE_INSTALL_PREFIX@")
cmake_path(APPEND zel_pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND zel_pc_includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
foreach(library zelCommonTypes zelSysMgrApi)
  set(pc_file "${PROJECT_BINARY_DIR}/${library}.pc")
  configure_file("${PROJECT_SOURCE_DIR}/packaging/${library}.pc.in" "${pc_file}.in" @ONLY)
  install(CODE "configure_file(\"${pc_file}.in\" \"${pc_file}\" @ONLY)" COMPONENT dev)
  install(
    FILES "${pc_file}"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT dev)
endforeach()

install(
  FILES "${PROJECT_SOURCE_DIR}/docs/man/zelsysmgrapi.7"
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man7"
  COMPONENT dev)

# zel_install_completions(PROGRAM COMPONENT): completion files for bash, zsh and fish.
function(zel_install_completions program component)
  set(completions "${PROJECT_SOURCE_DIR}/packaging/completions")
  install(
    FILES "${completions}/${program}.bash"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    RENAME ${program}
    COMPONENT ${component})
  install(
    FILES "${completions}/_${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions"
    COMPONENT ${component})
  install(
    FILES "${completions}/${program}.fish"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d"
    COMPONENT ${component})
endfunction()

if(TARGET sysmgrctl)
  install(TARGETS sysmgrctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(
    FILES "${PROJECT_SOURCE_DIR}/docs/man/sysmgrctl.1"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
    COMPONENT tools)
  zel_install_completions(sysmgrctl tools)
endif()
if(TARGET sysmgr-sim)
  install(TARGETS sysmgr-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT simulator)
  install(
    FILES "${PROJECT_SOURCE_DIR}/docs/man/sysmgr-sim.8"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man8"
    COMPONENT simulator)
  zel_install_completions(sysmgr-sim simulator)
  # The unit names the prefix, too. '%' begins a specifier there.
  set(unit_file "${PROJECT_BINARY_DIR}/sysmgr-sim.service")
  install(
    CODE "cmake_path(APPEND CMAKE_INSTALL_PREFIX \"${CMAKE_INSTALL_BINDIR}\" sysmgr-sim OUTPUT_VARIABLE zel_program)
          string(REPLACE \"%\" \"%%\" zel_program \"\${zel_program}\")
          configure_file(\"${PROJECT_SOURCE_DIR}/packaging/sysmgr-sim.service.in\" \"${unit_file}\" @ONLY)"
    COMPONENT simulator)
  install(
    FILES "${unit_file}"
    DESTINATION lib/systemd/system
    COMPONENT simulator)
endif()
if(TARGET zelSysMgrSimulator)
  install(
    TARGETS zelSysMgrSimulator
    EXPORT zelSysMgrSimulatorTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT simulator-dev
    FILE_SET HEADERS DESTINATION ${zel_header_dir} COMPONENT simulator-dev)
  install(
    EXPORT zelSysMgrSimulatorTargets
    NAMESPACE zelSysMgrApi::
    DESTINATION ${zel_package_dir}
    COMPONENT simulator-dev)
  install(
    FILES "${PROJECT_SOURCE_DIR}/cmake/ZelSysMgrTest.cmake"
    DESTINATION ${zel_package_dir}
    COMPONENT simulator-dev)
endif()

if(TARGET sysmgr-conformance)
  install(TARGETS sysmgr-conformance RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT simulator)
  install(
    FILES "${PROJECT_SOURCE_DIR}/docs/man/sysmgr-conformance.8"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man8"
    COMPONENT simulator)
endif()

install(
  FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${PROJECT_SOURCE_DIR}/LICENSE"
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT doc)
file(GLOB pages "${PROJECT_SOURCE_DIR}/docs/*.md" "${PROJECT_SOURCE_DIR}/docs/*.svg")
install(
  FILES ${pages}
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
  COMPONENT doc)
foreach(folder examples examples/daemon examples/testing)
  file(GLOB examples "${PROJECT_SOURCE_DIR}/${folder}/*.*")
  install(
    FILES ${examples}
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/${folder}
    COMPONENT doc)
endforeach()
