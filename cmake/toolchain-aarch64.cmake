# Linux arm64: Debian's aarch64 cross compiler and the arm64 libraries; programs run under qemu.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(PNGKRV_CROSS_PREFIX aarch64-linux-gnu)
set(PNGKRV_MULTIARCH aarch64-linux-gnu)
set(PNGKRV_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
