# Cross compiling with Debian's cross toolchain against the target architecture's libraries,
# installed through multiarch (dpkg --add-architecture) or unpacked into a sysroot (PNGKRV_SYSROOT).
# The including toolchain file sets CMAKE_SYSTEM_PROCESSOR, PNGKRV_CROSS_PREFIX (the compilers'
# prefix) and PNGKRV_MULTIARCH (the library folder under /usr/lib), and either PNGKRV_QEMU, the
# emulator the build machine needs to run the target's programs, or PNGKRV_LOADER, the target's
# dynamic loader, when it runs them natively.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${PNGKRV_CROSS_PREFIX}-gcc)
set(CMAKE_CXX_COMPILER ${PNGKRV_CROSS_PREFIX}-g++)

# A folder holding the target's Debian packages unpacked (./run makes one where multiarch can't
# install them); empty when the libraries are installed through multiarch.
set(PNGKRV_SYSROOT "" CACHE PATH "Target packages unpacked, used instead of multiarch libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PNGKRV_SYSROOT)

# Libraries, CMake packages and pkg-config files come from the target's multiarch folders only.
set(CMAKE_LIBRARY_ARCHITECTURE ${PNGKRV_MULTIARCH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_PATH} "")

if(NOT PNGKRV_SYSROOT)
  set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${PNGKRV_MULTIARCH}/pkgconfig:/usr/share/pkgconfig)
  if(PNGKRV_QEMU)
    # Test programs run under qemu-user; the target's C library is installed through multiarch.
    set(CMAKE_CROSSCOMPILING_EMULATOR ${PNGKRV_QEMU})
  endif()
  return()
endif()

# Headers and libraries from the sysroot. The C library and the C++ runtime that programs are
# compiled and linked against still come from the cross toolchain, whose folders the compiler
# searches first; at run time they come from the sysroot.
set(CMAKE_SYSROOT ${PNGKRV_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${PNGKRV_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The packages' .pc files name /usr as their prefix: pkg-config puts the sysroot before the paths.
set(ENV{PKG_CONFIG_LIBDIR}
    ${PNGKRV_SYSROOT}/usr/lib/${PNGKRV_MULTIARCH}/pkgconfig:${PNGKRV_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${PNGKRV_SYSROOT})

set(sysroot_libs
    ${PNGKRV_SYSROOT}/lib/${PNGKRV_MULTIARCH}:${PNGKRV_SYSROOT}/usr/lib/${PNGKRV_MULTIARCH})
# The libraries' own dependencies are looked up in the sysroot when linking.
set(link_flags "-Wl,-rpath-link,${sysroot_libs}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${link_flags}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${link_flags}")
# The programs (emulator, tools, tests, never the plug-in) load the sysroot's libraries, including
# those of the plug-in and of the libraries they open themselves: an RPATH, unlike a RUNPATH,
# applies to everything the process loads.
string(APPEND link_flags " -Wl,--disable-new-dtags,-rpath,${sysroot_libs}")
if(PNGKRV_QEMU)
  # qemu-user finds the target's loader, and what the loader reads, in the sysroot.
  set(CMAKE_CROSSCOMPILING_EMULATOR ${PNGKRV_QEMU} -L ${PNGKRV_SYSROOT})
else()
  # Run natively, with the sysroot's loader, which matches the sysroot's C library (the build
  # machine may have no loader for the target, or one of another glibc build); that C library
  # finds its character set converters in the sysroot too.
  string(APPEND link_flags " -Wl,--dynamic-linker=${PNGKRV_SYSROOT}${PNGKRV_LOADER}")
  set(CMAKE_CROSSCOMPILING_EMULATOR
      env GCONV_PATH=${PNGKRV_SYSROOT}/usr/lib/${PNGKRV_MULTIARCH}/gconv)
endif()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${link_flags}")
