#!/usr/bin/env bash
# check-library.sh LIBRARY PLATFORM
# Checks that a built plug-in library fits the package folder PLATFORM ("Linux x86-64",
# "Linux X86", "Linux arm64", "Linux ARM") and loads on the Linux distributions still in use:
# the ELF class and machine of that platform, REALPluginMain as its only export, only the
# libraries listed below as dependencies, and no symbol version newer than glibc 2.28 and the
# GCC 8 C++ runtime. Prints one line when it fits; otherwise every misfit, and exits 1.
set -euo pipefail

# platform | ELF class | ELF machine (as readelf names it) | dependencies beyond the common ones
PLATFORMS="
Linux x86-64|ELF64|Advanced Micro Devices X86-64|ld-linux-x86-64.so.2
Linux X86|ELF32|Intel 80386|ld-linux.so.2
Linux arm64|ELF64|AArch64|ld-linux-aarch64.so.1
Linux ARM|ELF32|ARM|ld-linux-armhf.so.3
"
# The C library (with libm, libdl and libpthread, which glibc 2.34 merged into it), libpng, zlib,
# and the compiler's runtime for the unwinder.
COMMON_NEEDED="libc.so.6 libm.so.6 libdl.so.2 libpthread.so.0 libpng16.so.16 libz.so.1 libgcc_s.so.1"
# The newest version of each runtime's symbols that the library may ask for.
NEWEST_VERSIONS="GLIBC_2.28 GLIBCXX_3.4.25 CXXABI_1.3.11 GCC_7.0.0"

[ $# -eq 2 ] || { echo "usage: check-library.sh LIBRARY PLATFORM" >&2; exit 2; }
lib=$1
platform=$2
row=$(grep -F "$platform|" <<<"$PLATFORMS" || true)
[ -n "$row" ] || { echo "$lib: unknown platform \"$platform\"" >&2; exit 2; }
IFS='|' read -r _ want_class want_machine extra_needed <<<"$row"

failures=()
fail() { failures+=("$1"); }

header=$(readelf -h "$lib")
class=$(awk -F': *' '/^ *Class:/ {print $2}' <<<"$header")
machine=$(awk -F': *' '/^ *Machine:/ {print $2}' <<<"$header")
[ "$class" = "$want_class" ] || fail "class $class, expected $want_class"
[ "$machine" = "$want_machine" ] || fail "machine $machine, expected $want_machine"

# Defined global symbols with default visibility in the dynamic symbol table.
exports=$(readelf -W --dyn-syms "$lib" |
  awk '$1 ~ /^[0-9]+:$/ && $7 != "UND" && ($5 == "GLOBAL" || $5 == "WEAK") && $6 == "DEFAULT" {
         sub(/@.*/, "", $8); print $8 }' | sort -u | paste -sd' ')
[ "$exports" = "REALPluginMain" ] || fail "exports \"$exports\", expected only REALPluginMain"

needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd' ')
for n in $needed; do
  case " $COMMON_NEEDED $extra_needed " in
    *" $n "*) ;;
    *) fail "needs $n" ;;
  esac
done

versions=$(readelf -V "$lib" | sed -n 's/.*Name: \([A-Z]*_[0-9.]*\) .*/\1/p' | sort -u)
newest_seen=""
for v in $versions; do
  prefix=${v%%_*}
  for limit in $NEWEST_VERSIONS; do
    [ "${limit%%_*}" = "$prefix" ] || continue
    if [ "$(printf '%s\n%s\n' "$v" "$limit" | sort -V | tail -n1)" != "$limit" ]; then
      fail "asks for $v, newer than $limit"
    fi
    [ "$prefix" = GLIBC ] && newest_seen=$(printf '%s\n%s\n' "$newest_seen" "$v" | sort -V | tail -n1)
  done
done

if [ ${#failures[@]} -gt 0 ]; then
  for f in "${failures[@]}"; do echo "$lib ($platform): $f" >&2; done
  exit 1
fi
echo "ok $platform: $class $machine, exports REALPluginMain, needs $needed, newest $newest_seen"
