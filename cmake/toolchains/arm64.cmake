# 64-bit ARM, with Debian's cross compiler and its libraries of that architecture beside the machine's own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(triplet aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
