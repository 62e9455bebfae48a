# 64-bit ARM boards.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(zel_triplet aarch64-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
