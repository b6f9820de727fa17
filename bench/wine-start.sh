#!/usr/bin/env bash
# What a run on the already-succeeded path costs the Windows build under
# Wine, side by side with a trivial program of the same toolchain and with
# one that makes only the system calls that path cannot do without
# (bench/windows/necessary.cpp).
#
#   bench/wine-start.sh WINDOWS_BUILD_DIR [ROUNDS]
#
# WINDOWS_BUILD_DIR is the x86_64 Windows build (build/build-win64): its
# ZandolinEngine.exe, and its compiler, with which the two baselines in
# bench/windows/ are built here with the engine's link options. The engine is deployed with
# an INI file that asks for no window, no pop-up and no notification, and
# run once so that it records its success; then the programs run in turn,
# ROUNDS times (default 20), each timed from the start of wine to its end,
# with one Wine server kept running for all of them. Prints each round, the
# minimum, median and maximum of each program's wall-clock time and of the
# processor time of its Wine process, and the ratios of the medians. Exit
# status 1 when the first run does not record its success, or when the
# engine's median wall-clock time is above 1.3 times the trivial program's.
#
# Uses WINEPREFIX when it is set and exists; otherwise makes one in a
# temporary folder (about 12 s), removed at the end.
set -uo pipefail

if [ $# -lt 1 ]; then
  echo "usage: $0 WINDOWS_BUILD_DIR [ROUNDS]" >&2
  exit 2
fi
build=$(realpath "$1")
rounds=${2:-20}
here=$(cd "$(dirname "$0")" && pwd)
compiler=$(sed -n 's/^set(CMAKE_CXX_COMPILER "\(.*\)")$/\1/p' \
  "$build"/CMakeFiles/*/CMakeCXXCompiler.cmake 2>/dev/null | head -n 1)
if [ ! -f "$build/ZandolinEngine.exe" ] || [ -z "$compiler" ]; then
  echo "wine-start: $build is no Windows build with ZandolinEngine.exe" >&2
  exit 2
fi

source "$here/wine-lib.sh" wine-start BenchStart wine wineboot wineserver
deploy="$WINEPREFIX/drive_c/BenchStart"

# The link options of ZANDOLIN_WINDOWS_LINK_OPTIONS in CMakeLists.txt.
for program in trivial necessary; do
  "$compiler" -O2 -mwindows -static -static-libgcc -static-libstdc++ -Wl,--file-alignment,4096 \
    "$here/windows/$program.cpp" -o "$work/$program.exe" || exit 1
done

wineserver -p >/dev/null 2>&1

rm -rf "$deploy"
mkdir -p "$deploy"
cp "$build/ZandolinEngine.exe" "$work/trivial.exe" "$work/necessary.exe" "$deploy/"
sed 's/$/\r/' >"$deploy/start.ini" <<'INI'
[GENERAL]
UseActiveDirectory=False
UseManualDefinitions=False
AlwaysRun=False
ShowProgress=False
[NOTIFICATION SMTP]
UseSMTP=False
[NOTIFICATION FILE OUTPUT]
UseFileOutput=False
IncludeComputerName=False
IncludeOutcome=False
WriteToEventLog=False
[NOTIFICATION CLIENT POP-UP]
UseClientPopup=False
UseSuccessClientPopup=False
UseFailureClientPopup=False
[DEPLOYMENT]
CreateWebLaunchPage=False
CreateBatchFile=False
IncludeMDAC=False
[PRUNE]
DeleteADOrphans=False
DeleteAllNonNetworked=False
[SUPPORT]
DebugOn=True
INI

# The first run records the success (the user's profile, Windows 10).
wine reg add 'HKCU\Software\Wine' /v Version /d win10 /f >/dev/null 2>&1
wine 'C:\BenchStart\ZandolinEngine.exe' >/dev/null 2>&1
status=$(find "$WINEPREFIX/drive_c/users" -maxdepth 2 -name Zandolin_status.log | head -n 1)
if ! grep -q '^C:\\BenchStart\\start.ini,True' "$status" 2>/dev/null; then
  echo "wine-start: the first run did not record its success" >&2
  exit 1
fi

# One run: the wall-clock time in microseconds, and the processor time of
# the wine process (user and system) in milliseconds as the shell counts
# its children.
run() {
  (
    start=${EPOCHREALTIME/./}
    wine "$1" >/dev/null 2>&1
    end=${EPOCHREALTIME/./}
    times >"$work/cpu"   # the shell's own times, then its children's
    tail -n 1 "$work/cpu" | sed 's/[ms]/ /g' |
      awk -v wall=$((end - start)) '{ printf "%d %.1f\n", wall, 1000 * ($1 * 60 + $2 + $3 * 60 + $4) }'
  )
}

# Wine's own processes of a fresh prefix settle, and each program's first
# start, which pays more, is not counted.
for _ in 1 2 3; do
  wine 'C:\BenchStart\trivial.exe' >/dev/null 2>&1
  wine 'C:\BenchStart\necessary.exe' >/dev/null 2>&1
  wine 'C:\BenchStart\ZandolinEngine.exe' >/dev/null 2>&1
done
: >"$work/times"
for round in $(seq 1 "$rounds"); do
  read -r tw tc < <(run 'C:\BenchStart\trivial.exe')
  read -r nw nc < <(run 'C:\BenchStart\necessary.exe')
  read -r ew ec < <(run 'C:\BenchStart\ZandolinEngine.exe')
  echo "trivial $tw $tc" >>"$work/times"
  echo "necessary $nw $nc" >>"$work/times"
  echo "engine $ew $ec" >>"$work/times"
  awk -v r="$round" -v tw="$tw" -v tc="$tc" -v nw="$nw" -v nc="$nc" -v ew="$ew" -v ec="$ec" 'BEGIN {
    printf "round %2d: trivial %5.1f ms (processor %4.1f), necessary calls %5.1f ms (%4.1f), engine %5.1f ms (%4.1f)\n",
      r, tw / 1000, tc, nw / 1000, nc, ew / 1000, ec }'
done

# The sorted values of column $2 (1: wall clock in microseconds, 2:
# processor in milliseconds) of program $1.
values() { awk -v p="$1" -v c="$2" '$1 == p { print $(c + 1) }' "$work/times" | sort -n; }
median() { values "$1" "$2" | awk '{ v[NR] = $1 } END { print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
# "min / median / max ms" of column $2 of program $1, divided by $3.
stats() {
  values "$1" "$2" | awk -v d="$3" -v m="$(median "$1" "$2")" '{ v[NR] = $1 } END {
    printf "%.1f / %.1f / %.1f ms", v[1] / d, m / d, v[NR] / d }'
}
echo "trivial program, wall clock     $(stats trivial 1 1000)"
echo "necessary calls, wall clock     $(stats necessary 1 1000)"
echo "engine, wall clock              $(stats engine 1 1000)"
echo "trivial program, processor      $(stats trivial 2 1)"
echo "necessary calls, processor      $(stats necessary 2 1)"
echo "engine, processor               $(stats engine 2 1)"
awk -v e="$(median engine 1)" -v n="$(median necessary 1)" -v t="$(median trivial 1)" 'BEGIN {
  printf "the necessary calls take %.2f times the trivial program, the engine %.2f times them (medians)\n", n / t, e / n
  printf "the engine takes %.2f times the trivial program (medians; limit 1.30)\n", e / t
  exit (e <= 1.3 * t) ? 0 : 1
}'
