# Shared helpers of the tests of the Windows build under Wine. Sourced by the
# test scripts, which run-all.sh starts with these variables set:
#   E2E_EXE           the Windows ZandolinEngine.exe (x86_64)
#   E2E_DEBUG         the Linux zandolin-debug
#   E2E_LINUX_BUILD   the Linux build it lies in (zandolin-sim, tests/...)
#   E2E_CAPTURE       the Windows zandolin-capture.exe (x86_64)
#   E2E_TMP           the run's temporary folder
#   E2E_RESULTS       the file that collects one PASS or FAIL line per check
#   E2E_COMPUTERNAME  the computer's name as Windows reports it
#   E2E_USER          the logged-on user as Windows reports it
#   WINEPREFIX        the prefix made once for the run
# Each check prints one line, "PASS <script>: <check>" or
# "FAIL <script>: <check>" followed by the details of the difference.

set -uo pipefail

: "${E2E_EXE:?start the tests through tests/e2e/run-all.sh}"
E2E_SCRIPT=$(basename "$0" .sh)
E2E_SCRIPT=${E2E_SCRIPT#test-}

# --- checks -----------------------------------------------------------------

e2e_pass() {
  echo "PASS $E2E_SCRIPT: $1"
  echo "PASS" >>"$E2E_RESULTS"
}

e2e_fail() {
  echo "FAIL $E2E_SCRIPT: $1"
  shift
  local line
  for line in "$@"; do printf '      %s\n' "$line"; done
  echo "FAIL" >>"$E2E_RESULTS"
}

# check_eq NAME EXPECTED ACTUAL: the two texts are equal, byte for byte.
check_eq() {
  if [ "$2" == "$3" ]; then
    e2e_pass "$1"
  else
    e2e_fail "$1" "expected: $(printf '%q' "$2")" "actual:   $(printf '%q' "$3")"
  fi
}

# check_line NAME FILE LINE: the file holds the line, exactly, at least once.
check_line() {
  if [ -f "$2" ] && grep -Fxq -- "$3" "$2"; then
    e2e_pass "$1"
  else
    e2e_fail "$1" "no line $(printf '%q' "$3") in $2"
  fi
}

# check_no_line NAME FILE LINE: the file does not hold the line.
check_no_line() {
  if [ -f "$2" ] && grep -Fxq -- "$3" "$2"; then
    e2e_fail "$1" "unexpected line $(printf '%q' "$3") in $2"
  else
    e2e_pass "$1"
  fi
}

# check_count NAME FILE LINE N: the line stands exactly N times in the file.
check_count() {
  local n=0
  [ -f "$2" ] && n=$(grep -Fxc -- "$3" "$2")
  check_eq "$1" "$4" "$n"
}

# check_file NAME PATH: the file exists.
check_file() {
  if [ -f "$2" ]; then e2e_pass "$1"; else e2e_fail "$1" "missing file $2"; fi
}

# check_no_file NAME PATH: the file does not exist.
check_no_file() {
  if [ -e "$2" ]; then e2e_fail "$1" "unexpected file $2"; else e2e_pass "$1"; fi
}

# --- the Windows side ---------------------------------------------------------

# The Linux path of a path on drive C: of the prefix.
e2e_unix() {
  local p=${1#[Cc]:}
  p=${p//\\//}
  echo "$WINEPREFIX/drive_c$p"
}

# The user's profile folder as the system gives it, on the Linux side.
e2e_profile_dir() { e2e_unix "C:\\users\\$E2E_USER"; }

# e2e_version win10|win2k|nt40|win98: the version Wine reports to the next
# process.
e2e_version() {
  wine reg add 'HKCU\Software\Wine' /v Version /d "$1" /f >/dev/null 2>&1
}

# e2e_printers DEFAULT NAME:PORT...: local printers as Windows keeps them (the
# spooler's key, the user's Devices and PrinterPorts entries), and DEFAULT as
# the user's default printer.
e2e_printers() {
  local default=$1 printer name port
  shift
  local reg="$E2E_TMP/$E2E_SCRIPT.printers.reg"
  {
    echo "REGEDIT4"
    for printer in "$@"; do
      name=${printer%%:*}
      port=${printer#*:}
      echo
      echo "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Print\\Printers\\$name]"
      echo "\"Name\"=\"$name\""
      echo "\"Port\"=\"$port\""
      echo "\"Printer Driver\"=\"Generic / Text Only\""
      echo "\"Attributes\"=dword:00000040"
      echo "\"Datatype\"=\"RAW\""
      echo "\"Print Processor\"=\"WinPrint\""
      echo
      echo "[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Devices]"
      echo "\"$name\"=\"winspool,$port\""
      echo
      echo "[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\PrinterPorts]"
      echo "\"$name\"=\"winspool,$port,15,45\""
      if [ "$name" == "$default" ]; then
        echo
        echo "[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows]"
        echo "\"Device\"=\"$name,winspool,$port\""
      fi
    done
  } | sed 's/$/\r/' >"$reg"
  wine regedit /S "$(winepath -w "$reg" 2>/dev/null)" >/dev/null 2>&1
}

# e2e_remove_printers NAME...: takes away printers made by e2e_printers, so
# that the scripts after this one find the prefix without them.
e2e_remove_printers() {
  local name reg="$E2E_TMP/$E2E_SCRIPT.remove.reg"
  local user='HKEY_CURRENT_USER\Software\Microsoft\Windows NT\CurrentVersion'
  {
    echo "REGEDIT4"
    for name in "$@"; do
      echo
      echo "[-HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Print\\Printers\\$name]"
      echo
      echo "[$user\\Devices]"
      echo "\"$name\"=-"
      echo
      echo "[$user\\PrinterPorts]"
      echo "\"$name\"=-"
    done
    echo
    echo "[$user\\Windows]"
    echo "\"Device\"=-"
  } | sed 's/$/\r/' >"$reg"
  wine regedit /S "$(winepath -w "$reg" 2>/dev/null)" >/dev/null 2>&1
}

# e2e_deploy NAME: a deployment folder C:\E2E\NAME holding a copy of the
# engine; sets DEPLOY (its Windows path) and DEPLOY_DIR (its Linux path).
e2e_deploy() {
  DEPLOY="C:\\E2E\\$1"
  DEPLOY_DIR=$(e2e_unix "$DEPLOY")
  rm -rf "$DEPLOY_DIR"
  mkdir -p "$DEPLOY_DIR"
  cp "$E2E_EXE" "$DEPLOY_DIR/ZandolinEngine.exe"
}

# e2e_ini FILE: writes an INI file from the INI_* variables; every Boolean
# key is written (all of them are mandatory), False unless set.
e2e_ini() {
  {
    echo "[GENERAL]"
    echo "UseActiveDirectory=${INI_UseActiveDirectory:-False}"
    echo "UseManualDefinitions=${INI_UseManualDefinitions:-False}"
    echo "AlwaysRun=${INI_AlwaysRun:-False}"
    echo "ShowProgress=${INI_ShowProgress:-False}"
    echo "[ACTIVE DIRECTORY]"
    echo "DomainName=${INI_DomainName:-}"
    echo "[NOTIFICATION SMTP]"
    echo "UseSMTP=${INI_UseSMTP:-False}"
    echo "[NOTIFICATION FILE OUTPUT]"
    echo "UseFileOutput=${INI_UseFileOutput:-False}"
    echo "FileOutputPath=${INI_FileOutputPath:-}"
    echo "FileOutputName=${INI_FileOutputName:-}"
    echo "IncludeComputerName=${INI_IncludeComputerName:-False}"
    echo "IncludeOutcome=${INI_IncludeOutcome:-False}"
    echo "WriteToEventLog=${INI_WriteToEventLog:-False}"
    echo "[NOTIFICATION CLIENT POP-UP]"
    echo "UseClientPopup=${INI_UseClientPopup:-False}"
    echo "UseSuccessClientPopup=${INI_UseSuccessClientPopup:-False}"
    echo "SuccessMessage=${INI_SuccessMessage:-}"
    echo "UseFailureClientPopup=${INI_UseFailureClientPopup:-False}"
    echo "FailureMessage=${INI_FailureMessage:-}"
    echo "[DEPLOYMENT]"
    echo "CreateWebLaunchPage=False"
    echo "CreateBatchFile=False"
    echo "IncludeMDAC=False"
    echo "MDACOption=${INI_MDACOption:-0}"
    echo "[POPULATE]"
    echo "ServerNames=${INI_PopulateServerNames:-}"
    echo "PrinterNames=${INI_PopulatePrinterNames:-}"
    echo "[PRUNE]"
    echo "ServerNames=${INI_PruneServerNames:-}"
    echo "PrinterNames=${INI_PrunePrinterNames:-}"
    echo "DeleteADOrphans=False"
    echo "DeleteAllNonNetworked=${INI_DeleteAllNonNetworked:-False}"
    echo "[PRINTER_DRIVER]"
    echo "PrinterName=${INI_DriverPrinterName:-}"
    echo "DriverName=${INI_DriverName:-}"
    echo "DriverFileName=${INI_DriverFileName:-}"
    echo "PortName=${INI_DriverPortName:-}"
    echo "DriverSharePath=${INI_DriverSharePath:-}"
    echo "[SET_DEFAULT]"
    echo "DefaultType=${INI_DefaultType:-0}"
    echo "DefaultPrinterName=${INI_DefaultPrinterName:-}"
    echo "[SUPPORT]"
    echo "DebugOn=${INI_DebugOn:-True}"
  } | sed 's/$/\r/' >"$1"
}

# e2e_run [ARGUMENT...]: runs the engine of DEPLOY with the arguments as its
# command line, from a working folder elsewhere, for at most 60 seconds, with
# Wine's channels E2E_WINEDEBUG when set, in the locale E2E_LOCALE when set
# (Wine takes the ANSI code page from it). The debug file of an earlier run is
# removed first, so that what is decoded is this run's alone. Sets RUN_RC, and
# RUN_OUT and RUN_ERR to the files of its standard output and standard error.
E2E_RUNS=0
e2e_run() {
  E2E_RUNS=$((E2E_RUNS + 1))
  RUN_OUT="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.out"
  RUN_ERR="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.err"
  rm -f "$DEPLOY_DIR/$E2E_COMPUTERNAME.debug"
  (cd "$E2E_TMP" && WINEDEBUG=${E2E_WINEDEBUG:-$WINEDEBUG} LC_ALL=${E2E_LOCALE:-$LC_ALL} \
    timeout 60 wine "$DEPLOY\\ZandolinEngine.exe" "$@" >"$RUN_OUT" 2>"$RUN_ERR")
  RUN_RC=$?
}

# e2e_decode FILE OUT: the debug file decoded by zandolin-debug, line ends
# made plain, into OUT.
e2e_decode() {
  if [ -f "$1" ]; then
    "$E2E_DEBUG" "$1" 2>"$2.err" | tr -d '\r' >"$2"
  else
    : >"$2"
  fi
}

# The debug file of a deployment folder, decoded into the file named; the
# name of that file is printed.
e2e_debug_log() {
  local out="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.log"
  e2e_decode "$DEPLOY_DIR/$E2E_COMPUTERNAME.debug" "$out"
  echo "$out"
}

# A text file of Windows with its carriage returns removed, into a file whose
# name is printed.
e2e_plain() {
  local out="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.$(basename "$1").plain"
  if [ -f "$1" ]; then tr -d '\r' <"$1" >"$out"; else : >"$out"; fi
  echo "$out"
}

# e2e_reg_value KEY NAME: the data of a registry value as reg.exe shows it,
# or nothing.
e2e_reg_value() {
  wine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' |
    awk -v name="$2" '
      { line = $0; sub(/^    /, "", line) }
      index(tolower(line), tolower(name) "    ") == 1 {
        rest = substr(line, length(name) + 5)
        sub(/^[A-Z_]+    /, "", rest)
        print rest
      }'
}

# --- zandolin-capture and the rehearsal on its capture ----------------------------

# e2e_capture [ARGUMENT...]: runs zandolin-capture.exe, copied beside the
# engine of DEPLOY, with the arguments, from a working folder elsewhere, for
# at most 60 seconds. Sets CAPTURE_RC, CAPTURE_OUT and CAPTURE_ERR (the files
# of its standard output and standard error), and CAPTURED, the Linux path
# of the capture it writes beside itself.
e2e_capture() {
  cp "$E2E_CAPTURE" "$DEPLOY_DIR/zandolin-capture.exe"
  E2E_RUNS=$((E2E_RUNS + 1))
  CAPTURE_OUT="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.capture.out"
  CAPTURE_ERR="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.capture.err"
  (cd "$E2E_TMP" && timeout 60 wine "$DEPLOY\\zandolin-capture.exe" "$@" >"$CAPTURE_OUT" 2>"$CAPTURE_ERR")
  CAPTURE_RC=$?
  CAPTURED="$DEPLOY_DIR/${E2E_COMPUTERNAME}_${E2E_USER}"
}

# e2e_json FILE EXPRESSION: the value of a Python expression over the JSON
# document m of FILE, as JSON with sorted keys.
e2e_json() {
  python3 -c 'import json, sys; m = json.load(open(sys.argv[1], encoding="utf-8"))
print(json.dumps(eval(sys.argv[2]), sort_keys=True, ensure_ascii=False))' "$1" "$2"
}

# e2e_rehearse FOLDER: zandolin-sim (beside zandolin-debug) run on a copy of
# a capture, as the engine runs, with no command line. Sets SIM_RC, and
# SIM_REPORT and SIM_LOG to files of its outcome text and debug log with
# plain line ends.
e2e_rehearse() {
  local copy="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.rehearsal"
  rm -rf "$copy"
  cp -r "$1" "$copy"
  SIM_REPORT="$copy.report"
  SIM_LOG="$copy.log"
  "$E2E_LINUX_BUILD/zandolin-sim" "$copy" --json >"$copy.json" 2>"$copy.err"
  SIM_RC=$?
  python3 -c 'import json, sys; t = json.load(open(sys.argv[1]))
open(sys.argv[2], "w").write(t["outcomeText"].replace("\r", ""))
open(sys.argv[3], "w").write(t["debugBuffer"].replace("\r", ""))' "$copy.json" "$SIM_REPORT" "$SIM_LOG" \
    2>>"$copy.err"
}

# e2e_same_run NAME REPORT LOG [WINE_LINE|SIM_LINE...]: the engine's report
# (an output file) and decoded debug log equal those of the last rehearsal,
# but for what the platform decides: the time in the report's head, and the
# lines named, each once in the engine's report or log as WINE_LINE where
# the simulated client writes SIM_LINE.
e2e_same_run() {
  local name=$1 report log pair
  report=$(e2e_plain "$2")
  log="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.log.named"
  cp "$3" "$log"
  shift 3
  sed -i 's/^Report At: .*/Report At: (the time of the run)/' "$report"
  local sim_report="$SIM_REPORT.named"
  sed 's/^Report At: .*/Report At: (the time of the run)/' "$SIM_REPORT" >"$sim_report"
  for pair in "$@"; do
    local file count
    count=$(( $(grep -Fxc -- "${pair%%|*}" "$report") + $(grep -Fxc -- "${pair%%|*}" "$log") ))
    check_eq "$name: the platform's line once in the engine's run: ${pair%%|*}" 1 "$count"
    for file in "$report" "$log"; do
      WINE_LINE=${pair%%|*} SIM_LINE=${pair#*|} \
        awk '$0 == ENVIRON["WINE_LINE"] { $0 = ENVIRON["SIM_LINE"] } 1' "$file" >"$file.new"
      mv "$file.new" "$file"
    done
  done
  check_eq "$name: rehearsal ends with exit status 0" 0 "$SIM_RC"
  check_eq "$name: outcome text as the engine's" "$(cat "$report")" "$(cat "$sim_report")"
  check_eq "$name: debug log as the engine's" "$(cat "$log")" "$(cat "$SIM_LOG")"
}
