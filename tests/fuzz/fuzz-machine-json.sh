#!/usr/bin/env bash
# Builds the machine.json reader's fuzz target with clang's libFuzzer and runs
# it over the corpus kept here (machine-json/) for a bounded time:
#
#   tests/fuzz/fuzz-machine-json.sh BUILD_DIR [SECONDS]
#
# SECONDS defaults to 60. New inputs go to a temporary folder, never into the
# corpus; a crash, a refusal without the file's name, a hang or a machine
# that does not read back as it was written fails the script, and its input
# is left in BUILD_DIR (crash-*, timeout-*, ...) to be added to the corpus
# once fixed.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
if [ $# -lt 1 ]; then
  echo "usage: $0 BUILD_DIR [SECONDS]" >&2
  exit 2
fi
build=$1
seconds=${2:-60}

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZANDOLIN_FUZZ=ON -DZANDOLIN_TESTS=OFF >/dev/null
ninja -C "$build" -j "$(nproc)" fuzz-machine-json

found=$(mktemp -d)
trap 'rm -rf "$found"' EXIT
cd "$build"
./fuzz-machine-json -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 "$found" "$root/tests/fuzz/machine-json"
