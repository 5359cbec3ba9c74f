#!/usr/bin/env bash
# Zig as a macOS cross compiler, for the CMake toolchain files toolchain-macos-*.cmake, which run it
# through small scripts named after the tool they stand for:
#
#   zig-macos.sh ZIG CACHE TARGET cc|c++|ar|ranlib ARGUMENTS...
#
# ZIG is the zig binary, CACHE the folder for its compiled runtime libraries, TARGET a Zig target
# such as aarch64-macos.11.0. Compiling and linking go to zig, except a link that names an exported
# symbols list (-Wl,-exported_symbols_list,FILE): zig's linker refuses one, and without it every
# symbol of the C++ runtime linked in would be exported too. That link is made by lld's ld64.lld
# instead, from the same objects and libraries plus the runtime libraries zig builds for the target
# (found by letting zig make the same link first), against zig's stub of libSystem. lld signs arm64
# output ad hoc, as macOS requires of arm64 code.
set -euo pipefail

zig=$1
export ZIG_GLOBAL_CACHE_DIR=$2 ZIG_LOCAL_CACHE_DIR=$2
target=$3
tool=$4
shift 4

case $tool in
  ar | ranlib) exec "$zig" "$tool" "$@" ;;
  cc | c++) ;;
  *) echo "zig-macos.sh: unknown tool $tool" >&2; exit 2 ;;
esac

# CMake asks the linker for its version (-Wl,-v) when it finds out the compiler's ABI; zig's
# linker takes no such option, and the answer is not needed.
exports=""
args=()
for arg in "$@"; do
  case $arg in
    -Wl,-exported_symbols_list,*) exports=${arg#-Wl,-exported_symbols_list,} ;;
    -Wl,-v) continue ;;
  esac
  args+=("$arg")
done
set -- "${args[@]}"
[ -n "$exports" ] || exec "$zig" "$tool" -target "$target" "$@"

# The link through ld64.lld. Its inputs: objects and archives, -l and -L options, and what -Wl,
# passes to the linker; compiler options are left to the compile steps that already ran.
arch=${target%%-*}
[ "$arch" = aarch64 ] && arch=arm64
version=${target##*-macos.}
output=""
zig_args=()
lld_args=()
while [ $# -gt 0 ]; do
  case $1 in
    -o)
      output=$2
      shift
      ;;
    -Wl,-exported_symbols_list,*) ;;
    -Wl,*)
      zig_args+=("$1")
      IFS=, read -r -a options <<<"${1#-Wl,}"
      lld_args+=("${options[@]}")
      ;;
    -lSystem | -lc) zig_args+=("$1") ;;
    -l* | -L*)
      zig_args+=("$1")
      lld_args+=("$1")
      ;;
    *.o | *.a)
      zig_args+=("$1")
      lld_args+=("$1")
      ;;
    *) zig_args+=("$1") ;;
  esac
  shift
done
[ -n "$output" ] || { echo "zig-macos.sh: a link without -o" >&2; exit 2; }

trial=$(mktemp -d)
trap 'rm -rf "$trial"' EXIT
# Whether zig's link succeeds doesn't matter once it has named the runtime libraries: ld64.lld
# reports what is wrong with the link itself (an undefined symbol, say) more clearly.
ZIG_VERBOSE_LINK=1 "$zig" "$tool" -target "$target" "${zig_args[@]}" -o "$trial/trial.dylib" \
  >/dev/null 2>"$trial/log" || true
grep -q '^zig ld ' "$trial/log" || { cat "$trial/log" >&2; exit 1; }
runtime=()
for word in $(grep '^zig ld ' "$trial/log"); do
  case $word in "$ZIG_GLOBAL_CACHE_DIR"/*.a) runtime+=("$word") ;; esac
done
libsystem=$(dirname "$(realpath "$zig")")/lib/libc/darwin/libSystem.${version%%.*}.tbd
exec ld64.lld-14 -arch "$arch" -platform_version macos "$version" "$version" -dylib -dead_strip \
  -install_name "@rpath/$(basename "$output")" -exported_symbols_list "$exports" \
  "${lld_args[@]}" "${runtime[@]}" "$libsystem" -o "$output"
