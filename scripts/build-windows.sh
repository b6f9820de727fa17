#!/usr/bin/env bash
# Cross-compiles the Windows build, Release, for x86_64 and i686:
#
#   scripts/build-windows.sh [OUTDIR]
#
# builds the files the release ships (shipped-files.txt of each build:
# ZandolinEngine.exe, EvntMsg.dll and the tools) into OUTDIR/build-win64 and
# OUTDIR/build-win32 (OUTDIR: the repository, unless given), and checks that
# each imports nothing but DLLs of the system, so that the engine runs when
# copied alone beside its INI file.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$root}
mkdir -p "$out"
out=$(cd "$out" && pwd)
jobs=$(nproc)

for target in "x86_64 build-win64" "i686 build-win32"; do
  read -r arch dir <<<"$target"
  echo "== $arch into $out/$dir"
  cmake -S "$root" -B "$out/$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-$arch.cmake" >/dev/null
  ninja -C "$out/$dir" -j "$jobs"

  sed "s|^|$out/$dir/|" "$out/$dir/shipped-files.txt" | xargs "$root/scripts/check-imports.sh"
done
