#!/usr/bin/env bash
# Runs the tests of the Windows build under Wine.
#
#   tests/e2e/run-all.sh ZANDOLINENGINE_EXE ZANDOLIN_DEBUG ZANDOLIN_CAPTURE_EXE [SCRIPT...]
#
# ZANDOLINENGINE_EXE and ZANDOLIN_CAPTURE_EXE are the x86_64 Windows
# executables, ZANDOLIN_DEBUG the Linux zandolin-debug (zandolin-sim lies
# beside it); nothing is built here. One Wine prefix is made in a
# temporary folder and shared by all scripts (test-*.sh beside this file, or
# the ones named), in order. Each check prints one line; the closing line
# says "N passed, M failed". The exit status is 0 only when all passed.
# Pictures of the screen go to E2E_OUT (default: zandolin-e2e-pictures in
# the temporary folder). The event message files checked are those of
# E2E_MESSAGE_FILES (default: the EvntMsg.dll beside the engine).
set -uo pipefail

if [ $# -lt 3 ]; then
  echo "usage: $0 ZANDOLINENGINE_EXE ZANDOLIN_DEBUG ZANDOLIN_CAPTURE_EXE [SCRIPT...]" >&2
  exit 2
fi
here=$(cd "$(dirname "$0")" && pwd)
E2E_EXE=$(realpath "$1")
E2E_DEBUG=$(realpath "$2")
E2E_CAPTURE=$(realpath "$3")
shift 3
for f in "$E2E_EXE" "$E2E_DEBUG" "$E2E_CAPTURE"; do
  [ -f "$f" ] || { echo "run-all: no such file: $f" >&2; exit 2; }
done
for tool in wine wineboot wineserver timeout; do
  command -v "$tool" >/dev/null || { echo "run-all: $tool is not installed" >&2; exit 2; }
done

if [ $# -gt 0 ]; then
  scripts=()
  for s in "$@"; do
    s=$(basename "$s" .sh)
    scripts+=("$here/test-${s#test-}.sh")
  done
else
  scripts=("$here"/test-*.sh)
fi

E2E_TMP=$(mktemp -d "${TMPDIR:-/tmp}/zandolin-e2e.XXXXXX")
# The Linux build beside zandolin-debug: the simulated client's side of the
# comparisons.
E2E_LINUX_BUILD=$(dirname "$E2E_DEBUG")
export E2E_EXE E2E_DEBUG E2E_CAPTURE E2E_TMP E2E_LINUX_BUILD
export E2E_RESULTS="$E2E_TMP/results"
: >"$E2E_RESULTS"
# Pictures of the screen taken by the tests, for a person to look at; they
# stay after the run.
export E2E_OUT=${E2E_OUT:-${TMPDIR:-/tmp}/zandolin-e2e-pictures}
mkdir -p "$E2E_OUT"

# One prefix for the whole run, no display (a message box returns at once),
# English regional settings, and Wine's own messages off unless a script
# asks for a channel.
export WINEPREFIX="$E2E_TMP/prefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
export LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY

cleanup() {
  wineserver -k >/dev/null 2>&1
  wineserver -w >/dev/null 2>&1
  [ -n "${E2E_KEEP:-}" ] || rm -rf "$E2E_TMP"
}
trap cleanup EXIT

started=$(date +%s)
echo "Making the Wine prefix in $WINEPREFIX ..."
wineboot -i >"$E2E_TMP/wineboot.log" 2>&1
wineserver -w
wineserver -p >/dev/null 2>&1   # keep one server for all scripts
E2E_COMPUTERNAME=$(wine cmd /c 'echo %COMPUTERNAME%' 2>/dev/null | tr -d '\r\n')
E2E_USER=$(wine cmd /c 'echo %USERNAME%' 2>/dev/null | tr -d '\r\n')
export E2E_COMPUTERNAME E2E_USER
if [ -z "$E2E_COMPUTERNAME" ] || [ -z "$E2E_USER" ]; then
  echo "run-all: the Wine prefix does not work (see $E2E_TMP/wineboot.log)" >&2
  cat "$E2E_TMP/wineboot.log" >&2
  exit 1
fi
echo "Prefix ready in $(($(date +%s) - started)) s; computer $E2E_COMPUTERNAME, user $E2E_USER."

for script in "${scripts[@]}"; do
  name=$(basename "$script" .sh)
  if [ ! -f "$script" ]; then
    echo "FAIL ${name#test-}: no such script $script"
    echo "FAIL" >>"$E2E_RESULTS"
    continue
  fi
  echo "== ${name#test-}"
  bash "$script"
  rc=$?
  if [ $rc -ne 0 ]; then
    echo "FAIL ${name#test-}: the script ended with status $rc"
    echo "FAIL" >>"$E2E_RESULTS"
  fi
done

passed=$(grep -c '^PASS$' "$E2E_RESULTS")
failed=$(grep -c '^FAIL$' "$E2E_RESULTS")
echo "Wine tests took $(($(date +%s) - started)) s."
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
