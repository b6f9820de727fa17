#!/usr/bin/env bash
# What the progress window costs a run of the Windows build under Wine.
#
#   bench/wine-progress.sh ZANDOLINENGINE_EXE [ENTRIES] [PRINTERS] [ROUNDS]
#
# Runs ZandolinEngine.exe (x86_64) on a virtual X display, Wine in
# virtual-desktop mode, ROUNDS times
# (default 5) with ShowProgress True and as often with it False, alternating,
# on the same client and the same INI file but for that key: PRINTERS local
# printers (default 4000), a populate list of ENTRIES local printers
# (default and at most 4999: the list is read into 10000 characters) that
# none of the 1500 driver definitions of the INI file names, and a prune
# list that names none of the printers. So the run walks every list and
# makes one progress statement per printer and per entry, and changes
# nothing. Prints the wall-clock time and the CPU time of the engine process
# of each run, and at the end the fastest of each kind: the window's run,
# less the 2.25 s that its start and its finish sleep by design, must stay
# within ten per cent of the run without the window. Exit status 1 when it
# does not.
#
# Uses WINEPREFIX when it is set and exists (for instance the prefix of an
# e2e run kept with E2E_KEEP), which keeps the printers registered here;
# otherwise makes one in a temporary folder (about 12 s and 700 MB), removed
# at the end.
set -uo pipefail

if [ $# -lt 1 ]; then
  echo "usage: $0 ZANDOLINENGINE_EXE [ENTRIES] [PRINTERS] [ROUNDS]" >&2
  exit 2
fi
exe=$(realpath "$1")
entries=${2:-4999}
printers=${3:-4000}
rounds=${4:-5}
drivers=1500
source "$(dirname "$0")/wine-lib.sh" wine-progress Bench wine wineboot wineserver winepath xvfb-run /usr/bin/time

# The client: local printers as the spooler keeps them in the registry.
echo "Registering $printers local printers ..."
{
  echo "REGEDIT4"
  for i in $(seq 1 "$printers"); do
    name="Bench Printer $i"
    printf '\n[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Print\\Printers\\%s]\n' "$name"
    printf '"Name"="%s"\n"Port"="LPT1:"\n"Printer Driver"="Generic / Text Only"\n' "$name"
    printf '"Attributes"=dword:00000040\n"Datatype"="RAW"\n"Print Processor"="WinPrint"\n'
    printf '\n[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Devices]\n'
    printf '"%s"="winspool,LPT1:"\n' "$name"
    printf '\n[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\PrinterPorts]\n'
    printf '"%s"="winspool,LPT1:,15,45"\n' "$name"
  done
} | sed 's/$/\r/' >"$work/printers.reg"
wine regedit /S "$(winepath -w "$work/printers.reg" 2>/dev/null)" >/dev/null 2>&1

repeat() { # repeat COUNT TEXT: TEXT,TEXT,...
  local i out=""
  for i in $(seq 1 "$1"); do out+="${out:+,}$2"; done
  printf '%s' "$out"
}
numbered() { # numbered COUNT TEXT: TEXT1,TEXT2,...
  local i out=""
  for i in $(seq 1 "$1"); do out+="${out:+,}$2$i"; done
  printf '%s' "$out"
}

# Two deployment folders, C:\Bench\True and C:\Bench\False, named after
# their ShowProgress.
deploy() {
  local dir="$WINEPREFIX/drive_c/Bench/$1"
  rm -rf "$dir"
  mkdir -p "$dir"
  cp "$exe" "$dir/ZandolinEngine.exe"
  {
    echo "[GENERAL]"
    echo "UseActiveDirectory=False"
    echo "UseManualDefinitions=True"
    echo "AlwaysRun=True"
    echo "ShowProgress=$1"
    echo "[NOTIFICATION SMTP]"
    echo "UseSMTP=False"
    echo "[NOTIFICATION FILE OUTPUT]"
    echo "UseFileOutput=False"
    echo "IncludeComputerName=False"
    echo "IncludeOutcome=False"
    echo "WriteToEventLog=False"
    echo "[NOTIFICATION CLIENT POP-UP]"
    echo "UseClientPopup=False"
    echo "UseSuccessClientPopup=False"
    echo "UseFailureClientPopup=False"
    echo "[DEPLOYMENT]"
    echo "CreateWebLaunchPage=False"
    echo "CreateBatchFile=False"
    echo "IncludeMDAC=False"
    echo "MDACOption=0"
    echo "[POPULATE]"
    echo "ServerNames=$(repeat "$entries" .)"
    echo "PrinterNames=$(repeat "$entries" e)"
    echo "[PRUNE]"
    echo "ServerNames=."
    echo "PrinterNames=No such printer"
    echo "DeleteADOrphans=False"
    echo "DeleteAllNonNetworked=False"
    echo "[PRINTER_DRIVER]"
    echo "PrinterName=$(numbered "$drivers" d)"
    echo "DriverName=Generic / Text Only"
    echo "DriverFileName=none.dll"
    echo "PortName=LPT1:"
    echo "DriverSharePath=C:\\Bench"
    echo "[SET_DEFAULT]"
    echo "DefaultType=0"
    echo "DefaultPrinterName="
    echo "[SUPPORT]"
    echo "DebugOn=False"
  } | sed 's/$/\r/' >"$dir/bench.ini"
}
deploy True
deploy False

# The runs, on one display, alternating; the server is started afresh for it.
cat >"$work/runs.sh" <<'RUNS'
#!/usr/bin/env bash
for round in $(seq 1 "$ROUNDS"); do
  for show in True False; do
    /usr/bin/time -f "$show %e %U %S" -a -o "$TIMES" \
      wine "C:\\Bench\\$show\\ZandolinEngine.exe" >/dev/null 2>&1
    tail -n 1 "$TIMES" | awk -v r="$round" \
      '{ printf "round %d  window %-5s  wall %6.2f s  engine CPU %6.2f s\n", r, $1, $2, $3 + $4 }'
  done
done
RUNS

# Wine in virtual-desktop mode: on a bare X server (no window manager) Wine
# waits up to 2 s for every top-level window it unmaps, a cost of the test
# set-up that a desktop does not have.
wine reg add 'HKCU\Software\Wine\Explorer' /v Desktop /d Default /f >/dev/null 2>&1
wine reg add 'HKCU\Software\Wine\Explorer\Desktops' /v Default /d 800x600 /f >/dev/null 2>&1
wineserver -k >/dev/null 2>&1
wineserver -w >/dev/null 2>&1
echo "Running: $printers printers, $entries populate entries, $drivers driver definitions," \
  "$rounds rounds ..."
ROUNDS=$rounds TIMES="$work/times" xvfb-run -a -s '-screen 0 800x600x24 -dpi 96' bash -c \
  'wineserver -p >/dev/null 2>&1; bash "$0"; wineserver -k >/dev/null 2>&1' "$work/runs.sh"
wine reg delete 'HKCU\Software\Wine\Explorer' /v Desktop /f >/dev/null 2>&1

# One statement per printer in the inventory and in the prune, one per
# populate entry, and the fixed ones of the run.
echo "Progress statements in a run with the window: about $((2 * printers + entries + 20))"
best() { awk -v s="$1" '$1 == s { if (m == "" || $2 < m) m = $2 } END { print m }' "$work/times"; }
best_cpu() {
  awk -v s="$1" '$1 == s { c = $3 + $4; if (m == "" || c < m) m = c } END { print m }' "$work/times"
}
awk -v on="$(best True)" -v off="$(best False)" -v con="$(best_cpu True)" \
  -v coff="$(best_cpu False)" 'BEGIN {
  if (on == "" || off == "") { print "wine-progress: no run was timed"; exit 1 }
  work = on - 2.25
  printf "Fastest run without the window: %.2f s (engine CPU %.2f s)\n", off, coff
  printf "Fastest run with the window:    %.2f s (engine CPU %.2f s); %.2f s less its 2.25 s of sleeps\n", on, con, work
  printf "The window adds %+.1f %% (limit 10 %%)\n", (work - off) / off * 100
  exit (work <= off * 1.10) ? 0 : 1
}'
