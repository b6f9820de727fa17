#!/usr/bin/env bash
# Runs every benchmark, each side by side with its baseline in the same run:
#
#   bench/run-all.sh [LINUX_BUILD_DIR] [WINDOWS_BUILD_DIR]
#
# LINUX_BUILD_DIR (default build/linux-release) is configured as a Release
# build without sanitizers, whose figures mean something, and the benchmark
# programs are built there: the debug file of a million lines beside the
# three stages one after the other (bench_debuglog), the directory-driven
# migration at its limits with the window on and off, the user's queues at
# the end of the directory's list and spread over it (bench_directory), the
# progress pulse with the window on and off (bench_progress), the manual
# migration and the printer layer at their limits (bench_manual,
# bench_printers), and zandolin-fleet's rehearsal and collect at the size of
# a large site (bench_fleet). With WINDOWS_BUILD_DIR (the x86_64 Windows
# build, e.g. build/build-win64), also under Wine: the already-succeeded path
# beside a trivial program and the necessary calls (wine-start.sh), the
# progress window on and off (wine-progress.sh) and the capture of a large
# client (wine-capture.sh). Exit status 1 when any benchmark misses its
# figure.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
linux=${1:-$root/build/linux-release}
windows=${2:-}

cmake -S "$root" -B "$linux" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZANDOLIN_SANITIZE=OFF >/dev/null &&
  ninja -C "$linux" -j "$(nproc)" bench_debuglog bench_directory bench_progress bench_manual \
    bench_printers bench_fleet zandolin-fleet >/dev/null || { echo "run-all: the benchmarks do not build" >&2; exit 2; }

failed=()
bench() {
  echo "== $*"
  "$@" || failed+=("$(basename "$1") ${*:2}")
  echo
}
bench "$linux/tests/bench_debuglog"
bench "$linux/tests/bench_directory" end
bench "$linux/tests/bench_directory" spread
bench "$linux/tests/bench_progress"
bench "$linux/tests/bench_manual"
bench "$linux/tests/bench_printers"
bench "$linux/tests/bench_fleet" rehearse
bench "$linux/tests/bench_fleet" collect
if [ -n "$windows" ]; then
  bench "$root/bench/wine-start.sh" "$windows"
  bench "$root/bench/wine-progress.sh" "$windows/ZandolinEngine.exe"
  bench "$root/bench/wine-capture.sh" "$windows/zandolin-capture.exe"
fi

if [ ${#failed[@]} -gt 0 ]; then
  printf 'run-all: missed its figure: %s\n' "${failed[@]}" >&2
  exit 1
fi
echo "run-all: every benchmark met its figure"
