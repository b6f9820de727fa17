#!/usr/bin/env bash
# Builds everything (Linux with sanitizers, Windows x86_64 and i686) and runs
# every test: the unit and scenario tests, each fuzz target for a few seconds
# (clang, libFuzzer), then the release package made from the Windows build,
# and its engine and files under Wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

"$root/scripts/install-deps.sh"

echo "== Linux build and tests"
cmake -S "$root" -B "$root/build/linux" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZANDOLIN_SANITIZE=ON >/dev/null
ninja -C "$root/build/linux" -j "$jobs"
(cd "$root/build/linux" && ctest --output-on-failure -j "$jobs")

echo "== Fuzz targets, a few seconds each"
"$root/scripts/fuzz.sh" 8

echo "== Windows builds"
"$root/scripts/build-windows.sh" "$root/build"

echo "== Release package, and the Windows build from it under Wine"
"$root/tests/package/test-package.sh" "$root/build/linux/zandolin-debug"
