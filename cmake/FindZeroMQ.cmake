# Finds libzmq and its header-only C++ binding, cppzmq, and defines the target ZeroMQ::ZeroMQ.
#
# Debian's libzmq3-dev brings no CMake package, only libzmq.pc: so pkg-config is asked, as cppzmq's own package does.

find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(ZeroMQ_PC QUIET IMPORTED_TARGET libzmq)
endif()
find_path(ZeroMQ_CPP_INCLUDE_DIR zmq.hpp HINTS ${ZeroMQ_PC_INCLUDE_DIRS})

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
  ZeroMQ
  REQUIRED_VARS ZeroMQ_PC_FOUND ZeroMQ_CPP_INCLUDE_DIR
  VERSION_VAR ZeroMQ_PC_VERSION
  REASON_FAILURE_MESSAGE "install libzmq3-dev, cppzmq-dev and pkg-config")

if(ZeroMQ_FOUND AND NOT TARGET ZeroMQ::ZeroMQ)
  add_library(ZeroMQ::ZeroMQ INTERFACE IMPORTED)
  set_target_properties(ZeroMQ::ZeroMQ PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${ZeroMQ_CPP_INCLUDE_DIR}")
  target_link_libraries(ZeroMQ::ZeroMQ INTERFACE PkgConfig::ZeroMQ_PC)
endif()
mark_as_advanced(ZeroMQ_CPP_INCLUDE_DIR)
