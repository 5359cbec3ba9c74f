# Cross compiling for Windows with Debian's mingw-w64 compilers (the posix thread model, which the
# C++ runtime's threads need). Libraries that Debian ships no Windows build of come from a prefix
# of static libraries compiled from Debian's source packages (tools/thirdparty), PNGKRV_THIRDPARTY.
# Programs built here run under Wine, in a Wine prefix of the build folder's own.
# The including toolchain file sets CMAKE_SYSTEM_PROCESSOR, PNGKRV_MINGW (the compilers' prefix)
# and PNGKRV_WINE, the Wine loader that runs its programs, where there is one, with the
# environment it needs in PNGKRV_WINE_ENV.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${PNGKRV_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${PNGKRV_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${PNGKRV_MINGW}-windres)

set(PNGKRV_THIRDPARTY "" CACHE PATH "Static Windows libraries built from Debian's sources")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PNGKRV_THIRDPARTY)

set(CMAKE_FIND_ROOT_PATH /usr/${PNGKRV_MINGW} ${PNGKRV_THIRDPARTY})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} ${PNGKRV_THIRDPARTY}/lib/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

# Every program and library carries its C and C++ runtimes (libgcc, libstdc++, winpthread), so
# that nothing but Windows' own DLLs is needed to load it.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)

# Wine runs the programs without a display, in a prefix made for the build folder on first use.
if(PNGKRV_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      env WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix WINEDEBUG=-all ${PNGKRV_WINE_ENV} ${PNGKRV_WINE})
endif()
