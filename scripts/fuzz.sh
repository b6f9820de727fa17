#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, address and undefined-behaviour
# sanitizers) in build/fuzz and runs each for SECONDS (default 300), starting
# from its seed corpus in fuzz/corpus/<target>/ with fuzz/<target>.dict.
# What a run finds new is kept in build/fuzz/corpus/<target>/, a crash in
# build/fuzz/artifacts/. Prints each target's executions a second (by the
# clock and by processor time) and exits with 1 when a target failed.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]     e.g. scripts/fuzz.sh 20 smtp ini
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-300}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(ini machine debug_reader smtp cmdline)
build="$root/build/fuzz"

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZANDOLIN_FUZZ=ON >/dev/null
ninja -C "$build" -j "$(nproc)" fuzz

mkdir -p "$build/artifacts"
failed=0
for t in "${targets[@]}"; do
  corpus="$build/corpus/$t"
  mkdir -p "$corpus"
  log="$build/$t.log"
  # The debug reader's time grows with the file: files of up to 2 KB (logs
  # of up to about 4 KB) keep it fast.
  options=()
  [ "$t" != debug_reader ] || options=(-max_len=2048)
  TIMEFORMAT='%U %S'
  status=0
  cpu=$( { time "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 "${options[@]}" \
             -dict="$root/fuzz/$t.dict" -artifact_prefix="$build/artifacts/$t-" \
             "$corpus" "$root/fuzz/corpus/$t" >"$log" 2>&1; } 2>&1 ) || status=$?
  runs=$(sed -n 's/^#\([0-9]*\)[[:space:]]*DONE.*/\1/p' "$log" | tail -1)
  rate=$(sed -n 's/.*DONE.* exec\/s: \([0-9]*\).*/\1/p' "$log" | tail -1)
  percpu=$(awk -v n="${runs:-0}" -v c="$cpu" 'BEGIN { split(c, t, " "); s = t[1] + t[2]; printf "%d", (s > 0 ? n / s : 0) }')
  if [ "$status" -eq 0 ] && [ -n "$runs" ]; then
    echo "fuzz_$t: ${runs} runs in ${seconds} s, ${rate} exec/s, ${percpu} exec per processor second"
  else
    echo "fuzz_$t: FAILED (exit status $status), see $log" >&2
    grep -E '^(==[0-9]+==ERROR|SUMMARY|rule broken|.*runtime error)' "$log" >&2 || tail -20 "$log" >&2
    failed=1
  fi
done
exit $failed
