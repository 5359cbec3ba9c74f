# Linux x86 (32-bit): Debian's i686 cross compiler and the i386 libraries. Runs natively.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(PNGKRV_CROSS_PREFIX i686-linux-gnu)
set(PNGKRV_MULTIARCH i386-linux-gnu)
set(PNGKRV_LOADER /lib/ld-linux.so.2)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
