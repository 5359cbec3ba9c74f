# Windows x86 (32-bit): Debian's mingw-w64 cross compiler. Programs run under the 32-bit Wine
# unpacked from Debian's i386 packages into PNGKRV_WINE32 (./run makes it), when given: its loader,
# its 32-bit DLLs, and the zlib1.dll they need from the mingw-w64 zlib that wine64 brings.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(PNGKRV_MINGW i686-w64-mingw32)
set(PNGKRV_WINE32 "" CACHE PATH "Debian's wine32 and libwine for i386, unpacked")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PNGKRV_WINE32)
if(PNGKRV_WINE32)
  set(PNGKRV_WINE ${PNGKRV_WINE32}/usr/lib/wine/wine)
  set(PNGKRV_WINE_ENV WINEDLLPATH=${PNGKRV_WINE32}/usr/lib/i386-linux-gnu/wine
      "WINEPATH=Z:\\usr\\i686-w64-mingw32\\lib")
endif()
include(${CMAKE_CURRENT_LIST_DIR}/mingw-cross.cmake)
