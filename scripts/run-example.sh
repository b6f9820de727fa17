#!/usr/bin/env bash
# Builds the simulator and runs the engine once on the bundled example client
# (a copy in a temporary folder; the repository is not changed). Extra
# arguments go to zandolin-sim.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" run
cmake -S "$root" -B "$root/build/linux-release" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZANDOLIN_TESTS=OFF >/dev/null
ninja -C "$root/build/linux-release" zandolin-sim zandolin-debug >/dev/null
exec "$root/build/linux-release/zandolin-sim" "$@"
