# Finds JsonCpp and defines the target JsonCpp::JsonCpp.
#
# JsonCpp brings a CMake package where it was built with CMake (Debian, Yocto) and only jsoncpp.pc where it was built
# with Meson (Buildroot): so its package is asked first, then pkg-config.

find_package(jsoncpp CONFIG QUIET)
if(NOT TARGET JsonCpp::JsonCpp)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(JsonCpp_PC QUIET IMPORTED_TARGET jsoncpp)
  endif()
  if(JsonCpp_PC_FOUND)
    add_library(JsonCpp::JsonCpp INTERFACE IMPORTED)
    target_link_libraries(JsonCpp::JsonCpp INTERFACE PkgConfig::JsonCpp_PC)
    set(jsoncpp_VERSION "${JsonCpp_PC_VERSION}")
  endif()
endif()

if(TARGET JsonCpp::JsonCpp)
  set(JsonCpp_TARGET JsonCpp::JsonCpp)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
  JsonCpp
  REQUIRED_VARS JsonCpp_TARGET
  VERSION_VAR jsoncpp_VERSION
  REASON_FAILURE_MESSAGE "install libjsoncpp-dev (1.9.4 or newer)")
