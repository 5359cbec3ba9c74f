# Linux ARM (32-bit, hard float): Debian's armhf cross compiler and the armhf libraries; programs
# run under qemu.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(PNGKRV_CROSS_PREFIX arm-linux-gnueabihf)
set(PNGKRV_MULTIARCH arm-linux-gnueabihf)
set(PNGKRV_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
# GCC notes wherever a std::vector of 8-byte aligned elements is passed that GCC 7.1 changed how
# ARM passes such arguments; that matters only next to code built by an older GCC, and none is.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
