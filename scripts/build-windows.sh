#!/usr/bin/env bash
# Cross-compiles the Windows build, Release, for x86_64 and i686:
#
#   scripts/build-windows.sh [OUTDIR]
#
# builds the files the release ships (shipped-files.txt of each build:
# ZandolinEngine.exe, EvntMsg.dll and the tools) into OUTDIR/build-win64 and
# OUTDIR/build-win32 (OUTDIR: the repository, unless given), and checks that
# each imports nothing but DLLs of the system, and each ZandolinEngine.exe
# and zandolin-capture.exe nothing but the DLLs of the system that every run
# needs, so that it runs when copied alone onto a client and a run loads no
# library it does not use; that both are programs of the window subsystem,
# which open no console window when a logon script starts them; and that
# zandolin-capture.exe stays under 1 MB.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$root}
mkdir -p "$out"
out=$(cd "$out" && pwd)
jobs=$(nproc)

# The DLLs that every Windows has and every run needs. A DLL that would have
# to be shipped beside the engine (libstdc++, libgcc, libwinpthread, ...)
# must not be imported; nor may a system library that only some runs need
# (the spooler, the window and graphics libraries, the directory, socket and
# profile libraries, the common controls): platform/native loads those when
# a run first uses them, so that a run that only finds its INI file already
# succeeded loads none of them.
imported_dlls='^(kernel32|advapi32|msvcrt)\.dll$'

for target in "x86_64 build-win64" "i686 build-win32"; do
  read -r arch dir <<<"$target"
  echo "== $arch into $out/$dir"
  cmake -S "$root" -B "$out/$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-$arch.cmake" >/dev/null
  ninja -C "$out/$dir" -j "$jobs"

  sed "s|^|$out/$dir/|" "$out/$dir/shipped-files.txt" | xargs "$root/scripts/check-imports.sh"

  for exe in "$out/$dir/ZandolinEngine.exe" "$out/$dir/zandolin-capture.exe"; do
    bad=$(x86_64-w64-mingw32-objdump -p "$exe" | sed -n 's/^\s*DLL Name: //p' |
      tr 'A-Z' 'a-z' | grep -Ev "$imported_dlls" || true)
    if [ -n "$bad" ]; then
      echo "build-windows: $exe imports DLLs that it must load at their first use, or that" \
        "are not the system's:" $bad >&2
      exit 1
    fi
    if ! x86_64-w64-mingw32-objdump -p "$exe" | grep -E '^Subsystem\s.*\(Windows GUI\)$' >/dev/null; then
      echo "build-windows: $exe is not a program of the window subsystem: it would open a" \
        "console window at logon" >&2
      exit 1
    fi
  done

  stripped="$out/$dir/zandolin-capture.stripped"
  x86_64-w64-mingw32-strip -o "$stripped" "$out/$dir/zandolin-capture.exe"
  size=$(stat -c %s "$stripped")
  rm -f "$stripped"
  if [ "$size" -ge 1048576 ]; then
    echo "build-windows: zandolin-capture.exe is $size bytes stripped, not under 1 MB" >&2
    exit 1
  fi
  echo "zandolin-capture.exe: $size bytes stripped"
done
