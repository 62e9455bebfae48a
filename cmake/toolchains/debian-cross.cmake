# Debian's cross compilers, for the toolchain files beside this one: they set the processor and the compilers' triplet.
#
# ZEL_SYSROOT (variable or environment): the board's file system, or what scripts/cross-sysroot unpacks. Without it
# Debian's multiarch libraries of this machine are used.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER ${zel_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${zel_triplet})

if(NOT DEFINED ZEL_SYSROOT)
  set(ZEL_SYSROOT "$ENV{ZEL_SYSROOT}")
endif()
set(ZEL_SYSROOT "${ZEL_SYSROOT}" CACHE PATH "File system of the target")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZEL_SYSROOT)

if(ZEL_SYSROOT)
  set(CMAKE_SYSROOT "${ZEL_SYSROOT}")
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ZEL_SYSROOT}")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} "${ZEL_SYSROOT}/usr/lib/${zel_triplet}/pkgconfig:${ZEL_SYSROOT}/usr/share/pkgconfig")
