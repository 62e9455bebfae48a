# 32-bit ARM boards with a floating-point unit (ARMv7).
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(zel_triplet arm-linux-gnueabihf)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
# Silence about a change of the calling convention in GCC 7: all that is linked together here is younger.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
