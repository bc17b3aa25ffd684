# IBM Z, which is big-endian: the tests' example of that, with Debian's cross compiler and its libraries of that architecture beside the machine's own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(triplet s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
