#!/usr/bin/env bash
# Static zlib and libpng for a platform whose libraries Debian doesn't ship (Windows, macOS),
# compiled from Debian's own source packages by that platform's cross toolchain.
#
#   tools/thirdparty/build-static.sh TOOLCHAIN_FILE PREFIX [CMAKE OPTIONS...]
#
# Installs zlib and libpng (headers, static archives, CMake and pkg-config files) into PREFIX. The
# sources are fetched once into build-thirdparty/ (tools/thirdparty/sources.sh) and kept; PREFIX
# is kept too, and a PREFIX that already holds both libraries is left as it is.
set -euo pipefail
cd "$(dirname "$0")/../.."

[ $# -ge 2 ] || { echo "usage: $0 TOOLCHAIN_FILE PREFIX [CMAKE OPTIONS...]" >&2; exit 2; }
toolchain=$(realpath "$1")
prefix=$(realpath -m "$2")
shift 2
[ -f "$prefix/.complete" ] && exit 0

# shellcheck source=tools/thirdparty/sources.sh
. tools/thirdparty/sources.sh

SOURCE_PACKAGES=(zlib libpng1.6)

for package in "${SOURCE_PACKAGES[@]}"; do fetch "$package"; done
configure_and_install zlib tools/thirdparty/zlib -DZLIB_SOURCE="$sources/zlib/tree" "$@"
configure_and_install libpng "$sources/libpng1.6/tree" -DPNG_SHARED=OFF -DPNG_STATIC=ON \
  -DPNG_EXECUTABLES=OFF -DPNG_TESTS=OFF -DPNG_HARDWARE_OPTIMIZATIONS=ON \
  -DZLIB_ROOT="$prefix" -DZLIB_LIBRARY="$prefix/lib/libz.a" -DZLIB_INCLUDE_DIR="$prefix/include" \
  "$@"
touch "$prefix/.complete"
