# Cross compiling for macOS with Zig (cmake/zig-macos.sh), against static zlib and libpng built
# for the target (tools/thirdparty/build-static.sh) in PNGKRV_DEPS, when given. The including
# toolchain file sets CMAKE_SYSTEM_PROCESSOR and PNGKRV_ZIG_TARGET (a Zig target with the oldest
# macOS version the library supports). PNGKRV_ZIG names the zig binary and PNGKRV_ZIG_CACHE the
# folder of its compiled runtime libraries.
set(CMAKE_SYSTEM_NAME Darwin)
set(PNGKRV_ZIG "" CACHE FILEPATH "The zig binary")
set(PNGKRV_ZIG_CACHE "" CACHE PATH "Zig's cache of compiled runtime libraries")
set(PNGKRV_DEPS "" CACHE PATH "zlib and libpng built for the target")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PNGKRV_ZIG PNGKRV_ZIG_CACHE PNGKRV_DEPS)
if(NOT PNGKRV_ZIG OR NOT PNGKRV_ZIG_CACHE)
  message(FATAL_ERROR "A macOS build needs -DPNGKRV_ZIG=<zig binary> -DPNGKRV_ZIG_CACHE=<folder>")
endif()

# One script for each tool, as CMake takes a compiler without arguments.
set(wrappers ${CMAKE_BINARY_DIR}/zig-${PNGKRV_ZIG_TARGET})
foreach(tool cc c++ ar ranlib)
  file(WRITE ${wrappers}/${tool} "#!/bin/sh\nexec '${CMAKE_CURRENT_LIST_DIR}/zig-macos.sh' \
'${PNGKRV_ZIG}' '${PNGKRV_ZIG_CACHE}' ${PNGKRV_ZIG_TARGET} ${tool} \"$@\"\n")
  file(CHMOD ${wrappers}/${tool} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
       GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
set(CMAKE_C_COMPILER ${wrappers}/cc)
set(CMAKE_CXX_COMPILER ${wrappers}/c++)
set(CMAKE_AR ${wrappers}/ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${wrappers}/ranlib CACHE FILEPATH "")

# Nothing from the build machine's own folders: only the target's libraries.
set(CMAKE_FIND_ROOT_PATH ${PNGKRV_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} ${PNGKRV_DEPS}/lib/pkgconfig)
