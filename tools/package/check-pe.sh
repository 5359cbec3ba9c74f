#!/usr/bin/env bash
# check-pe.sh DLL PLATFORM
# Checks that a built plug-in DLL fits the package folder PLATFORM ("Windows x86-64" or
# "Windows", the 32-bit one) and loads on any Windows: the PE format of that machine,
# REALPluginMain (undecorated) as its only export, and imports from Windows' own DLLs alone, so
# that no compiler runtime or library DLL has to ship with it. Prints one line when it fits;
# otherwise every misfit, and exits 1.
set -euo pipefail

# platform | file format (as objdump names it)
PLATFORMS="
Windows x86-64|pei-x86-64
Windows|pei-i386
"
# DLLs that every Windows has (compared without regard to case): the kernel, the C runtime (the
# old msvcrt or the universal one, directly or through its API sets) and the core system DLLs.
SYSTEM_DLLS="kernel32.dll msvcrt.dll ucrtbase.dll user32.dll gdi32.dll advapi32.dll shell32.dll
ole32.dll oleaut32.dll ws2_32.dll"
SYSTEM_PATTERNS="api-ms-win-crt-*.dll api-ms-win-core-*.dll"
OBJDUMP=${OBJDUMP:-x86_64-w64-mingw32-objdump}

[ $# -eq 2 ] || { echo "usage: check-pe.sh DLL PLATFORM" >&2; exit 2; }
dll=$1
platform=$2
row=$(grep -F "$platform|" <<<"$PLATFORMS" | grep "^$platform|" || true)
[ -n "$row" ] || { echo "$dll: unknown platform \"$platform\"" >&2; exit 2; }
want_format=${row#*|}

failures=()
fail() { failures+=("$1"); }

headers=$("$OBJDUMP" -p "$dll")
format=$(sed -n 's/.*file format \(.*\)$/\1/p' <<<"$headers" | head -n1)
[ "$format" = "$want_format" ] || fail "format $format, expected $want_format"

# The names after the export table's "[Ordinal/Name Pointer] Table" heading.
exports=$(awk '/^\[Ordinal\/Name Pointer\] Table/ {on = 1; next}
               on && /^\t\[ *[0-9]+\] / {print $3; next}
               on {on = 0}' <<<"$headers" | sort -u | paste -sd' ')
[ "$exports" = "REALPluginMain" ] || fail "exports \"$exports\", expected only REALPluginMain"

imports=$(sed -n 's/^\tDLL Name: //p' <<<"$headers" | paste -sd' ')
for name in $imports; do
  lower=${name,,}
  allowed=0
  for system in $SYSTEM_DLLS; do [ "$lower" = "$system" ] && allowed=1; done
  # shellcheck disable=SC2053
  for pattern in $SYSTEM_PATTERNS; do [[ $lower == $pattern ]] && allowed=1; done
  [ "$allowed" = 1 ] || fail "imports $name"
done

if [ ${#failures[@]} -gt 0 ]; then
  for f in "${failures[@]}"; do echo "$dll ($platform): $f" >&2; done
  exit 1
fi
echo "ok $platform: $format, exports REALPluginMain, imports $imports"
