#!/usr/bin/env bash
# Static zlib and libpng for a platform whose libraries Debian doesn't ship (Windows, macOS),
# compiled from Debian's own source packages by that platform's cross toolchain.
#
#   tools/thirdparty/build-static.sh TOOLCHAIN_FILE PREFIX [CMAKE OPTIONS...]
#
# Installs zlib and libpng (headers, static archives, CMake and pkg-config files) into PREFIX. The
# sources are fetched once into build-thirdparty/ (apt-get source through a private deb-src list,
# so that the machine's apt configuration is left alone) and kept; PREFIX is kept too, and a
# PREFIX that already holds both libraries is left as it is.
set -euo pipefail
cd "$(dirname "$0")/../.."

[ $# -ge 2 ] || { echo "usage: $0 TOOLCHAIN_FILE PREFIX [CMAKE OPTIONS...]" >&2; exit 2; }
toolchain=$(realpath "$1")
prefix=$(realpath -m "$2")
shift 2
[ -f "$prefix/.complete" ] && exit 0

top=$PWD/build-thirdparty
state=$top/apt
sources=$top/src

# Debian's source packages, newest version first; the first whose files the mirror serves is used
# (the security archive may list a version its pool no longer holds).
SOURCE_PACKAGES=(zlib libpng1.6)

apt_options() {
  echo -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$state/parts" \
    -o Dir::State::Lists="$state/lists" -o Dir::Cache="$state/cache"
}

# Writes the private deb-src list from the machine's own Debian entries and reads its indexes.
prepare_apt() {
  [ -f "$state/ready" ] && return
  mkdir -p "$state/parts" "$state/lists/partial" "$state/cache"
  local list
  list=$(cat /etc/apt/sources.list.d/*.sources 2>/dev/null || true)
  if [ -n "$list" ]; then
    sed 's/^Types: deb$/Types: deb-src/' <<<"$list" >"$state/parts/debian.sources"
  else
    sed -n 's/^deb /deb-src /p' /etc/apt/sources.list >"$state/parts/debian.list"
  fi
  # shellcheck disable=SC2046
  apt-get update -qq $(apt_options) >/dev/null 2>&1 || true
  touch "$state/ready"
}

# fetch PACKAGE: unpacks PACKAGE's source into $sources/PACKAGE (once).
fetch() {
  local package=$1 versions version dir=$sources/$1
  [ -d "$dir/tree" ] && return
  command -v dpkg-source >/dev/null || {
    echo "dpkg-source is missing (Debian package dpkg-dev)" >&2
    return 1
  }
  prepare_apt
  # shellcheck disable=SC2046
  versions=$(apt-cache $(apt_options) showsrc "$package" | sed -n 's/^Version: //p' |
    sort -Vru)
  rm -rf "$dir" && mkdir -p "$dir"
  for version in $versions; do
    # shellcheck disable=SC2046
    if (cd "$dir" && apt-get source -qq --download-only $(apt_options) \
      "$package=$version" >/dev/null 2>&1); then
      (cd "$dir" && dpkg-source -x --no-check ./*.dsc tree >/dev/null)
      echo "$package $version"
      return
    fi
    rm -f "$dir"/*
  done
  echo "no source of $package can be downloaded" >&2
  return 1
}

# configure_and_install NAME SOURCE [CMAKE OPTIONS...]
configure_and_install() {
  local name=$1 source=$2 work
  shift 2
  work=$prefix.build/$name
  mkdir -p "$work"
  # The output only when a step fails: old CMake files of both projects warn at every configure.
  if ! { cmake -S "$source" -B "$work" -Wno-dev -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON "$@" &&
    cmake --build "$work" -j"$(nproc 2>/dev/null || echo 2)" &&
    cmake --install "$work"; } >"$work.log" 2>&1; then
    cat "$work.log" >&2
    return 1
  fi
}

for package in "${SOURCE_PACKAGES[@]}"; do fetch "$package"; done
configure_and_install zlib tools/thirdparty/zlib -DZLIB_SOURCE="$sources/zlib/tree" "$@"
configure_and_install libpng "$sources/libpng1.6/tree" -DPNG_SHARED=OFF -DPNG_STATIC=ON \
  -DPNG_EXECUTABLES=OFF -DPNG_TESTS=OFF -DPNG_HARDWARE_OPTIMIZATIONS=ON \
  -DZLIB_ROOT="$prefix" -DZLIB_LIBRARY="$prefix/lib/libz.a" -DZLIB_INCLUDE_DIR="$prefix/include" \
  "$@"
touch "$prefix/.complete"
