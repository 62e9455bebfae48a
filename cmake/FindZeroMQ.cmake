# Finds libzmq and its header-only C++ binding, cppzmq, and defines the target ZeroMQ::ZeroMQ.
#
# Debian's libzmq3-dev brings no CMake package. pkg-config only tells where to look: where there is none, the usual
# places and CMAKE_PREFIX_PATH are searched all the same.

find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(ZeroMQ_PC QUIET libzmq)
endif()
find_path(ZeroMQ_INCLUDE_DIR zmq.h HINTS ${ZeroMQ_PC_INCLUDE_DIRS} ${ZeroMQ_PC_INCLUDEDIR})
find_path(ZeroMQ_CPP_INCLUDE_DIR zmq.hpp HINTS ${ZeroMQ_INCLUDE_DIR})
find_library(ZeroMQ_LIBRARY zmq HINTS ${ZeroMQ_PC_LIBRARY_DIRS} ${ZeroMQ_PC_LIBDIR})

if(ZeroMQ_INCLUDE_DIR)
  set(ZeroMQ_VERSION "")
  foreach(piece MAJOR MINOR PATCH)
    file(STRINGS "${ZeroMQ_INCLUDE_DIR}/zmq.h" line REGEX "^#define ZMQ_VERSION_${piece} [0-9]+")
    string(REGEX MATCH "[0-9]+" number "${line}")
    list(APPEND ZeroMQ_VERSION ${number})
  endforeach()
  list(JOIN ZeroMQ_VERSION "." ZeroMQ_VERSION)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
  ZeroMQ
  REQUIRED_VARS ZeroMQ_LIBRARY ZeroMQ_INCLUDE_DIR ZeroMQ_CPP_INCLUDE_DIR
  VERSION_VAR ZeroMQ_VERSION
  REASON_FAILURE_MESSAGE "install libzmq3-dev and cppzmq-dev")

if(ZeroMQ_FOUND AND NOT TARGET ZeroMQ::ZeroMQ)
  add_library(ZeroMQ::ZeroMQ UNKNOWN IMPORTED)
  set_target_properties(
    ZeroMQ::ZeroMQ PROPERTIES IMPORTED_LOCATION "${ZeroMQ_LIBRARY}"
                              INTERFACE_INCLUDE_DIRECTORIES "${ZeroMQ_INCLUDE_DIR};${ZeroMQ_CPP_INCLUDE_DIR}")
endif()
mark_as_advanced(ZeroMQ_INCLUDE_DIR ZeroMQ_CPP_INCLUDE_DIR ZeroMQ_LIBRARY)
