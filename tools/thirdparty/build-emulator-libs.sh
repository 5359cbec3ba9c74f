#!/usr/bin/env bash
# The host emulator's libraries for a platform whose libraries Debian doesn't ship (Windows):
# GoogleTest, gd, libspng and libffi, compiled as static libraries by that platform's cross
# toolchain from Debian's own sources (GoogleTest's from the build machine's googletest package,
# the others' source packages fetched as tools/thirdparty/sources.sh does).
#
#   tools/thirdparty/build-emulator-libs.sh TOOLCHAIN_FILE PREFIX
#
# Installs them, with pkg-config and CMake files, into PREFIX, which already holds zlib and libpng
# (tools/thirdparty/build-static.sh). A PREFIX that holds them all is left as it is.
set -euo pipefail
cd "$(dirname "$0")/../.."

[ $# -eq 2 ] || { echo "usage: $0 TOOLCHAIN_FILE PREFIX" >&2; exit 2; }
toolchain=$(realpath "$1")
prefix=$(realpath -m "$2")
[ -f "$prefix/.emulator-complete" ] && exit 0
[ -f "$prefix/.complete" ] || { echo "$prefix has no zlib and libpng yet" >&2; exit 1; }

# shellcheck source=tools/thirdparty/sources.sh
. tools/thirdparty/sources.sh

GOOGLETEST=/usr/src/googletest
[ -f "$GOOGLETEST/CMakeLists.txt" ] || {
  echo "GoogleTest's sources are missing (Debian package googletest)" >&2
  exit 1
}
for package in libgd2 libspng libffi; do fetch "$package"; done

configure_and_install googletest "$GOOGLETEST" -DBUILD_GMOCK=OFF -DINSTALL_GTEST=ON
# gd with no image formats and no fonts: the emulator uses its images in memory only.
configure_and_install gd "$sources/libgd2/tree" -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON \
  -DENABLE_CPP=OFF -DBUILD_TEST=OFF -DBUILD_PROGRAMS=OFF
configure_and_install spng tools/thirdparty/spng -DSPNG_SOURCE="$sources/libspng/tree" \
  -DZLIB_ROOT="$prefix" -DZLIB_LIBRARY="$prefix/lib/libz.a" -DZLIB_INCLUDE_DIR="$prefix/include"

# libffi builds with its own configure script, with the compiler that CMake found for the
# toolchain (the projects above are configured with it).
cc=$(sed -n 's/^set(CMAKE_C_COMPILER "\(.*\)")$/\1/p' \
  "$prefix.build/spng/CMakeFiles/"*/CMakeCCompiler.cmake)
host=$("$cc" -dumpmachine)
work=$prefix.build/libffi
rm -rf "$work" && mkdir -p "$work"
if ! (cd "$work" && "$sources/libffi/tree/configure" --host="$host" --prefix="$prefix" \
  --disable-shared --enable-static --disable-docs --disable-multi-os-directory CC="$cc" &&
  make -j"$(nproc 2>/dev/null || echo 2)" && make install) >"$work.log" 2>&1; then
  cat "$work.log" >&2
  exit 1
fi
touch "$prefix/.emulator-complete"
