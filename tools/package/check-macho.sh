#!/usr/bin/env bash
# check-macho.sh LIBRARY PLATFORM LIBSYSTEM_TBD
# Checks that a built macOS plug-in library fits the package folder PLATFORM ("Mac x86-64",
# "Mac arm64", "Mac Universal") and can load on macOS 11 and later, as far as the file shows
# without a Mac to run it: a Mach-O dynamic library holding exactly that platform's architectures;
# in each, _REALPluginMain as the only export, libSystem as the only library loaded, every
# undefined symbol one that libSystem defines for that architecture (LIBSYSTEM_TBD is its stub, as
# the toolchain links against), macOS 11.0 as the minimum version, and on arm64, which macOS runs
# only signed, a code signature whose page hashes match the file. Prints one line when it fits;
# otherwise every misfit, and exits 1.
set -euo pipefail

# platform | architectures, in lipo's names and sorted
PLATFORMS="
Mac x86-64|x86_64
Mac arm64|arm64
Mac Universal|arm64 x86_64
"
LIBRARIES="/usr/lib/libSystem.B.dylib"
MINIMUM_OS=11.0

[ $# -eq 3 ] || { echo "usage: check-macho.sh LIBRARY PLATFORM LIBSYSTEM_TBD" >&2; exit 2; }
lib=$1
platform=$2
tbd=$3
row=$(grep -F "$platform|" <<<"$PLATFORMS" || true)
[ -n "$row" ] || { echo "$lib: unknown platform \"$platform\"" >&2; exit 2; }
want_archs=${row#*|}

failures=()
fail() { failures+=("$1"); }

# The symbols a .tbd stub exports (its own and its re-exported libraries') for target ARCH-macos.
stub_symbols() {
  awk -v want="$1-macos" '
    function flush(   n, i, item, items) {
      if (key == "targets") { targets = list; gsub(/ /, "", targets) }
      else if (key ~ /symbols$/ && section ~ /^(exports|reexports)$/ && \
               index("," targets ",", "," want ",") > 0) {
        n = split(list, items, ",")
        for (i = 1; i <= n; i++) {
          item = items[i]
          gsub(/[ \047]/, "", item)
          if (item != "") print item
        }
      }
      open = 0
    }
    /^[a-z]/ { section = $1; sub(/:.*/, "", section) }
    open { list = list " " $0; if ($0 ~ /\]/) { sub(/\].*/, "", list); flush() }; next }
    /^ *(- )?[a-z-]+: *\[/ {
      key = $0
      sub(/^ *(- )?/, "", key)
      sub(/:.*/, "", key)
      list = $0
      sub(/^[^[]*\[/, "", list)
      list = " " list
      open = 1
      if (list ~ /\]/) { sub(/\].*/, "", list); flush() }
    }
  ' "$2" | sort -u
}

# The 32-bit little-endian word at byte OFFSET of FILE.
word32() {
  od -An -tu4 -j "$2" -N4 "$1" | tr -d ' '
}
# Big-endian words, as code signatures store them.
word32be() {
  od -An -tx1 -j "$2" -N4 "$1" | tr -d ' \n' | { read -r hex; echo $((16#$hex)); }
}

# The slice of ARCH as a file of its own.
slice_of() {
  local arch=$1 out=$2
  if [ "$archs" = "$arch" ]; then
    cp "$lib" "$out"
  else
    llvm-lipo-14 "$lib" -thin "$arch" -output "$out"
  fi
}

# Checks the ad-hoc or other signature of a thin file: the SHA-256 hash of each page up to the
# code limit against the code directory's.
check_signature() {
  local file=$1 arch=$2 headers=$3 dataoff blob count i type offset cd=""
  dataoff=$(awk '/cmd LC_CODE_SIGNATURE/ {found = 1} found && $1 == "dataoff" {print $2; exit}' \
    <<<"$headers")
  [ -n "$dataoff" ] || { fail "$arch: no code signature (LC_CODE_SIGNATURE)"; return; }
  blob=$dataoff
  [ "$(word32be "$file" "$blob")" = $((0xfade0cc0)) ] ||
    { fail "$arch: the code signature is no embedded signature blob"; return; }
  count=$(word32be "$file" $((blob + 8)))
  for ((i = 0; i < count; i++)); do
    type=$(word32be "$file" $((blob + 12 + 8 * i)))
    offset=$(word32be "$file" $((blob + 16 + 8 * i)))
    [ "$type" = 0 ] && cd=$((blob + offset))
  done
  [ -n "$cd" ] && [ "$(word32be "$file" "$cd")" = $((0xfade0c02)) ] ||
    { fail "$arch: the code signature has no code directory"; return; }
  local hash_offset slots limit hash_size hash_type page_shift page size want got
  hash_offset=$(word32be "$file" $((cd + 16)))
  slots=$(word32be "$file" $((cd + 28)))
  limit=$(word32be "$file" $((cd + 32)))
  hash_size=$(od -An -tu1 -j $((cd + 36)) -N1 "$file" | tr -d ' ')
  hash_type=$(od -An -tu1 -j $((cd + 37)) -N1 "$file" | tr -d ' ')
  page_shift=$(od -An -tu1 -j $((cd + 39)) -N1 "$file" | tr -d ' ')
  [ "$hash_type" = 2 ] && [ "$hash_size" = 32 ] ||
    { fail "$arch: the code directory's hashes are not SHA-256"; return; }
  [ "$limit" = "$dataoff" ] ||
    { fail "$arch: the signature covers $limit bytes, not the $dataoff before it"; return; }
  page=$((1 << page_shift))
  for ((i = 0; i < slots; i++)); do
    size=$((limit - i * page < page ? limit - i * page : page))
    want=$(od -An -tx1 -v -j $((cd + hash_offset + 32 * i)) -N32 "$file" | tr -d ' \n')
    got=$(dd if="$file" iflag=skip_bytes,count_bytes skip=$((i * page)) count="$size" \
      status=none | sha256sum | cut -d' ' -f1)
    [ "$want" = "$got" ] || { fail "$arch: page $i does not match its signature hash"; return; }
  done
}

check_slice() {
  local arch=$1 file=$2 headers exports loaded undefined minos missing
  headers=$(llvm-objdump-14 --macho --private-headers "$file")
  [ "$(awk '$1 == "magic" {getline; print $1, $5; exit}' <<<"$headers")" = "MH_MAGIC_64 DYLIB" ] ||
    fail "$arch: not a 64-bit Mach-O dynamic library"

  exports=$(llvm-objdump-14 --macho --exports-trie "$file" | awk '/^0x/ {print $2}' |
    paste -sd' ')
  [ "$exports" = "_REALPluginMain" ] || fail "$arch: exports \"$exports\", expected only _REALPluginMain"

  loaded=$(awk '/cmd LC_(LOAD|LOAD_WEAK|REEXPORT|LAZY_LOAD|LOAD_UPWARD)_DYLIB$/ {found = 1}
                found && $1 == "name" {print $2; found = 0}' <<<"$headers")
  for l in $loaded; do
    [[ " $LIBRARIES " == *" $l "* ]] || fail "$arch: loads $l"
  done

  undefined=$(llvm-nm-14 -u "$file" | sort -u)
  missing=$(comm -23 <(echo "$undefined") <(stub_symbols "$arch" "$tbd") | paste -sd' ')
  [ -z "$missing" ] || fail "$arch: undefined symbols that libSystem lacks: $missing"

  minos=$(awk '/cmd LC_BUILD_VERSION/ {found = 1} found && $1 == "minos" {print $2; exit}' \
    <<<"$headers")
  [ "$minos" = "$MINIMUM_OS" ] || fail "$arch: minimum macOS \"$minos\", expected $MINIMUM_OS"

  [ "$arch" = arm64 ] && check_signature "$file" "$arch" "$headers"
  return 0
}

archs=$(llvm-lipo-14 -archs "$lib" 2>/dev/null | xargs -n1 | sort | xargs || true)
if [ "$archs" != "$want_archs" ]; then
  fail "architectures \"$archs\", expected \"$want_archs\""
else
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  for arch in $archs; do
    slice_of "$arch" "$work/$arch"
    check_slice "$arch" "$work/$arch"
  done
fi

if [ ${#failures[@]} -gt 0 ]; then
  for f in "${failures[@]}"; do echo "$lib ($platform): $f" >&2; done
  exit 1
fi
signed=""
[[ " $archs " == *" arm64 "* ]] && signed=", arm64 signed"
echo "ok $platform: $archs, exports _REALPluginMain, loads $LIBRARIES, macOS $MINIMUM_OS$signed"
