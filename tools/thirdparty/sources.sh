# Shared by the third-party build scripts (sourced, from the top of the worktree): Debian's source
# packages fetched once into build-thirdparty/ through a private deb-src list, so that the
# machine's apt configuration is left alone, and CMake projects built and installed into a prefix.
# The including script sets `prefix` (the installation folder) and `toolchain` (a CMake toolchain
# file).

top=$PWD/build-thirdparty
state=$top/apt
sources=$top/src

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

# fetch PACKAGE: unpacks PACKAGE's source into $sources/PACKAGE/tree (once). Debian's versions are
# tried newest first; the first whose files the mirror serves is used (the security archive may
# list a version its pool no longer holds).
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
  # The output only when a step fails: old CMake files warn at every configure.
  if ! { cmake -S "$source" -B "$work" -Wno-dev -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON "$@" &&
    cmake --build "$work" -j"$(nproc 2>/dev/null || echo 2)" &&
    cmake --install "$work"; } >"$work.log" 2>&1; then
    cat "$work.log" >&2
    return 1
  fi
}
