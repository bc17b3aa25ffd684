# What the toolchain files of this folder share: the caller has set CMAKE_SYSTEM_NAME, CMAKE_SYSTEM_PROCESSOR and `triplet`.
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# Whichever pkg-config there is describes the target's libraries, and those alone.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${triplet}/pkgconfig:/usr/share/pkgconfig)
# What the build or a test has to run of what it made runs in the emulator, if there is one.
find_program(CMAKE_CROSSCOMPILING_EMULATOR
             NAMES qemu-${CMAKE_SYSTEM_PROCESSOR} qemu-${CMAKE_SYSTEM_PROCESSOR}-static)
if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    unset(CMAKE_CROSSCOMPILING_EMULATOR CACHE)
endif()
