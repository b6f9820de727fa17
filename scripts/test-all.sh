#!/usr/bin/env bash
# Builds everything (Linux with sanitizers, Windows x86_64 and i686) and runs
# every test: the unit and scenario tests, then the Windows build under Wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

"$root/scripts/install-deps.sh"

echo "== Linux build and tests"
cmake -S "$root" -B "$root/build/linux" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZANDOLIN_SANITIZE=ON >/dev/null
ninja -C "$root/build/linux" -j "$jobs"
(cd "$root/build/linux" && ctest --output-on-failure -j "$jobs")

echo "== Windows builds"
"$root/scripts/build-windows.sh" "$root/build"

echo "== Windows build under Wine"
"$root/tests/e2e/run-all.sh" "$root/build/build-win64/ZandolinEngine.exe" "$root/build/linux/zandolin-debug" \
  "$root/build/build-win64/zandolin-capture.exe"
