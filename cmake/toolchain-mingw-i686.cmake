# Windows x86 (32-bit): Debian's mingw-w64 cross compiler.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(PNGKRV_MINGW i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-cross.cmake)
