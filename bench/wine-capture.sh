#!/usr/bin/env bash
# How long zandolin-capture.exe takes for a large client under Wine.
#
#   bench/wine-capture.sh ZANDOLIN_CAPTURE_EXE [PRINTERS] [DRIVERS] [ROUNDS]
#
# Registers PRINTERS local printers (default 200) and DRIVERS printer drivers
# (default 50) in a Wine prefix, then captures the client ROUNDS times
# (default 10) with no INI file, so that no print server is asked. Checks
# that each capture holds every printer and driver, and prints for each run
# the wall-clock time, the CPU time of the capture process, and that of the
# Wine server while it ran (Wine answers registry and spooler calls there,
# where Windows counts them to the process), then the minimum, median and
# maximum of each and of the two CPU times together: the tool's own time.
# Exit status 1 when a capture is incomplete or the median of the tool's own
# time is 0.5 s or more.
#
# Uses WINEPREFIX when it is set and exists (its printers and drivers are
# kept); otherwise makes one in a temporary folder, removed at the end.
set -uo pipefail

if [ $# -lt 1 ]; then
  echo "usage: $0 ZANDOLIN_CAPTURE_EXE [PRINTERS] [DRIVERS] [ROUNDS]" >&2
  exit 2
fi
exe=$(realpath "$1")
printers=${2:-200}
drivers=${3:-50}
rounds=${4:-10}
source "$(dirname "$0")/wine-lib.sh" wine-capture BenchCapture wine wineboot wineserver winepath python3 /usr/bin/time

# The client: local printers as the spooler keeps them, and drivers as it
# keeps them for the 64-bit environment.
echo "Registering $printers printers and $drivers drivers ..."
{
  echo "REGEDIT4"
  for i in $(seq 1 "$printers"); do
    name="Bench Printer $i"
    printf '\n[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Print\\Printers\\%s]\n' "$name"
    printf '"Name"="%s"\n"Port"="LPT1:"\n"Printer Driver"="Bench Driver %d"\n' "$name" $(( (i - 1) % drivers + 1 ))
    printf '"Attributes"=dword:00000040\n"Datatype"="RAW"\n"Print Processor"="WinPrint"\n'
    printf '"Description"="Printer %d of the benchmark"\n"Location"="Floor %d"\n' "$i" $(( i % 7 ))
    printf '\n[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Devices]\n'
    printf '"%s"="winspool,LPT1:"\n' "$name"
    printf '\n[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\PrinterPorts]\n'
    printf '"%s"="winspool,LPT1:,15,45"\n' "$name"
  done
  for i in $(seq 1 "$drivers"); do
    printf '\n[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Print\\Environments\\Windows x64\\Drivers\\Version-3\\Bench Driver %d]\n' "$i"
    printf '"Version"=dword:00000003\n"Driver"="bench%d.dll"\n"Data File"="bench%d.ppd"\n' "$i" "$i"
    printf '"Configuration File"="bench%dui.dll"\n' "$i"
  done
  printf '\n[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows]\n'
  printf '"Device"="Bench Printer 1,winspool,LPT1:"\n'
} | sed 's/$/\r/' >"$work/client.reg"
wine regedit /S "$(winepath -w "$work/client.reg" 2>/dev/null)" >/dev/null 2>&1

dir="$WINEPREFIX/drive_c/BenchCapture"
rm -rf "$dir"
mkdir -p "$dir/out"
cp "$exe" "$dir/zandolin-capture.exe"
# One server for all runs, started here so that its CPU time can be read.
wineserver -k >/dev/null 2>&1
wineserver -w >/dev/null 2>&1
wineserver -f -p >/dev/null 2>&1 &
server=$!
tick=$(getconf CLK_TCK)
server_cpu() { awk -v t="$tick" '{ printf "%.3f", ($14 + $15) / t }' "/proc/$server/stat"; }

echo "Capturing $rounds times ..."
failed=0
for round in $(seq 1 "$rounds"); do
  rm -rf "$dir/out"/*
  before=$(server_cpu)
  /usr/bin/time -f "%e %U %S" -o "$work/time" \
    wine 'C:\BenchCapture\zandolin-capture.exe' 'C:\BenchCapture\out' >/dev/null 2>"$work/err"
  echo "$(cat "$work/time") $(awk -v a="$before" -v b="$(server_cpu)" 'BEGIN { print b - a }')" >>"$work/times"
  counts=$(python3 -c 'import glob, json
m = json.load(open(glob.glob("'"$dir"'/out/*/machine.json")[0]))
print(len(m["printers"]), len(m["drivers"]))' 2>/dev/null)
  tail -n 1 "$work/times" | awk -v r="$round" -v c="$counts" \
    '{ printf "round %2d  wall %5.3f s  CPU: capture %5.3f s, Wine server %5.3f s  (printers and drivers captured: %s)\n", r, $1, $2 + $3, $4, c }'
  if [ "$counts" != "$printers $drivers" ]; then
    echo "wine-capture: the capture holds '$counts' printers and drivers, not '$printers $drivers'" >&2
    failed=1
  fi
done

python3 - "$work/times" "$failed" <<'PY'
import statistics, sys
rows = [line.split() for line in open(sys.argv[1]) if line.strip()]
wall = [float(r[0]) for r in rows]
cpu = [float(r[1]) + float(r[2]) for r in rows]
server = [float(r[3]) for r in rows]
own = [c + s for c, s in zip(cpu, server)]
for name, values in (("wall", wall), ("capture CPU", cpu), ("server CPU", server), ("own CPU", own)):
    print(f"{name:12s} min {min(values):.3f} s  median {statistics.median(values):.3f} s  max {max(values):.3f} s")
ok = sys.argv[2] == "0" and statistics.median(own) < 0.5
print("Median of the tool's own time under 0.5 s:", "yes" if statistics.median(own) < 0.5 else "no")
sys.exit(0 if ok else 1)
PY
