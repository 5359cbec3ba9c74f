# Windows x86-64: Debian's mingw-w64 cross compiler. Programs run under Wine (wine64).
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(PNGKRV_MINGW x86_64-w64-mingw32)
set(PNGKRV_WINE /usr/lib/wine/wine64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-cross.cmake)
