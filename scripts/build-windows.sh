#!/usr/bin/env bash
# Cross-compiles the Windows build, Release, for x86_64 and i686:
#
#   scripts/build-windows.sh [OUTDIR]
#
# builds ZandolinEngine.exe, zandolin-capture.exe and zandolin-debug.exe into
# OUTDIR/build-win64 and OUTDIR/build-win32 (OUTDIR: the repository, unless
# given), and checks that ZandolinEngine.exe and zandolin-capture.exe import
# nothing but DLLs of the system, so that each runs when copied alone onto a
# client, and that zandolin-capture.exe stays under 1 MB stripped.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$root}
mkdir -p "$out"
out=$(cd "$out" && pwd)
jobs=$(nproc)

# DLLs that every Windows has; anything else (libstdc++, libgcc,
# libwinpthread, ...) would have to be shipped beside the engine.
system_dlls='^(kernel32|user32|gdi32|advapi32|winspool\.drv|msvcrt|comctl32|userenv|ws2_32'
system_dlls+='|wsock32|wldap32|ole32|oleaut32|shell32)(\.dll)?$'

for target in "x86_64 build-win64" "i686 build-win32"; do
  read -r arch dir <<<"$target"
  echo "== $arch into $out/$dir"
  cmake -S "$root" -B "$out/$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-$arch.cmake" >/dev/null
  ninja -C "$out/$dir" -j "$jobs"

  for exe in "$out/$dir/ZandolinEngine.exe" "$out/$dir/zandolin-capture.exe"; do
    bad=$(x86_64-w64-mingw32-objdump -p "$exe" | sed -n 's/^\s*DLL Name: //p' |
      tr 'A-Z' 'a-z' | grep -Ev "$system_dlls" || true)
    if [ -n "$bad" ]; then
      echo "build-windows: $exe imports DLLs that are not the system's:" $bad >&2
      exit 1
    fi
    echo "$exe imports:" $(x86_64-w64-mingw32-objdump -p "$exe" | sed -n 's/^\s*DLL Name: //p')
  done

  stripped="$out/$dir/zandolin-capture.stripped.exe"
  x86_64-w64-mingw32-strip -o "$stripped" "$out/$dir/zandolin-capture.exe"
  size=$(stat -c %s "$stripped")
  rm -f "$stripped"
  if [ "$size" -ge 1048576 ]; then
    echo "build-windows: zandolin-capture.exe is $size bytes stripped, not under 1 MB" >&2
    exit 1
  fi
  echo "zandolin-capture.exe: $size bytes stripped"
done
