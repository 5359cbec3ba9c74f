# Cross compiling with Debian's cross toolchain against the target architecture's libraries
# installed through multiarch (dpkg --add-architecture). The including toolchain file sets
# CMAKE_SYSTEM_PROCESSOR, PNGKRV_CROSS_PREFIX (the compilers' prefix) and PNGKRV_MULTIARCH (the
# library folder under /usr/lib), and PNGKRV_QEMU when the build machine needs an emulator to run
# the target's programs.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${PNGKRV_CROSS_PREFIX}-gcc)
set(CMAKE_CXX_COMPILER ${PNGKRV_CROSS_PREFIX}-g++)

# Libraries, CMake packages and pkg-config files come from the target's multiarch folder only.
set(CMAKE_LIBRARY_ARCHITECTURE ${PNGKRV_MULTIARCH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${PNGKRV_MULTIARCH}/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

if(PNGKRV_QEMU)
  # Test programs run under qemu-user; the target's C library is installed through multiarch.
  set(CMAKE_CROSSCOMPILING_EMULATOR ${PNGKRV_QEMU})
endif()
