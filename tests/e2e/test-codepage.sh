#!/usr/bin/env bash
# Text in the ANSI code page, on Windows and on the simulated client: local
# printers named "Drücker" and "日本", listed by a run in code page 1252 and
# in 932 (Wine takes the code page from the process's locale), and the same
# run of zandolin-sim on the same printers in the same code page. The
# printers' lines of the debug file (UTF-16, made from the engine's text by
# the code page) and of the output file (the engine's bytes) must be the
# same; a name the code page cannot hold is lost the same way.
source "$(dirname "$0")/lib.sh"

here=$(cd "$(dirname "$0")" && pwd)
sim="$E2E_LINUX_BUILD/zandolin-sim"
if [ ! -x "$sim" ]; then
  e2e_fail "zandolin-sim for the comparison" "missing $sim"
  exit 0
fi

# codepage_printers add|remove: the printers, by a registry file in UTF-16,
# so that their names are the same whatever the code page of the editor.
codepage_printers() {
  local reg="$E2E_TMP/codepage.printers.$1.reg"
  /usr/bin/python3 - "$reg" "$1" <<'EOF'
import sys
path, mode = sys.argv[1:]
printers = [("Drücker", "LPT1:"), ("日本", "FILE:")]
user = r"HKEY_CURRENT_USER\Software\Microsoft\Windows NT\CurrentVersion"
spooler = r"HKEY_LOCAL_MACHINE\System\CurrentControlSet\Control\Print\Printers"
lines = ["Windows Registry Editor Version 5.00"]
for name, port in printers:
    if mode == "add":
        lines += ["", rf"[{spooler}\{name}]", f'"Name"="{name}"', f'"Port"="{port}"',
                  '"Printer Driver"="Generic / Text Only"', '"Attributes"=dword:00000040',
                  '"Datatype"="RAW"', '"Print Processor"="WinPrint"',
                  "", rf"[{user}\Devices]", f'"{name}"="winspool,{port}"',
                  "", rf"[{user}\PrinterPorts]", f'"{name}"="winspool,{port},15,45"']
    else:
        lines += ["", rf"[-{spooler}\{name}]", "", rf"[{user}\Devices]", f'"{name}"=-',
                  "", rf"[{user}\PrinterPorts]", f'"{name}"=-']
open(path, "wb").write(b"\xff\xfe" + ("\r\n".join(lines) + "\r\n").encode("utf-16-le"))
EOF
  wine regedit /S "$(winepath -w "$reg" 2>/dev/null)" >/dev/null 2>&1
}

codepage_printers add

# printer_lines LOG: the lines of the debug log about the user's printers.
printer_lines() { grep -E '^(>> Found (local|networked) printer|ERROR: Getting client printer)' "$1"; }

for cp in 1252 932; do
  case $cp in
    1252) locale=C.UTF-8 ;;
    932) locale=ja_JP.UTF-8 ;;
  esac
  e2e_deploy "CodePage$cp"
  INI_AlwaysRun=True INI_UseFileOutput=True INI_FileOutputPath="$DEPLOY" INI_FileOutputName=report.txt \
    INI_IncludeOutcome=True e2e_ini "$DEPLOY_DIR/codepage.ini"
  E2E_LOCALE=$locale e2e_run
  check_eq "code page $cp: the run ends" 0 "$RUN_RC"
  wine_log=$(e2e_debug_log)
  wine_report="$DEPLOY_DIR/SUCCESS_report.txt"

  # The same client, simulated.
  client="$E2E_TMP/codepage-sim-$cp"
  rm -rf "$client"
  mkdir -p "$client/files/C/E2E/CodePage$cp"
  cp "$DEPLOY_DIR/codepage.ini" "$client/files/C/E2E/CodePage$cp/"
  /usr/bin/python3 - "$client/machine.json" "$cp" "$DEPLOY" "$E2E_COMPUTERNAME" "$E2E_USER" <<'EOF'
import json, sys
path, cp, deploy, computer, user = sys.argv[1:]
printer = lambda name, port: {"name": name, "serverName": None, "portName": port,
                              "driverName": "Generic / Text Only", "attributes": 64}
json.dump({"os": {"ansiCodePage": int(cp)}, "computerName": computer, "userName": user,
           "exePath": deploy + "\\ZandolinEngine.exe",
           "printers": [printer("Drücker", "LPT1:"), printer("日本", "FILE:")],
           "drivers": ["Generic / Text Only"]}, open(path, "w", encoding="utf-8"), ensure_ascii=False)
EOF
  "$sim" --json "$client" >"$E2E_TMP/codepage-sim-$cp.json" 2>"$E2E_TMP/codepage-sim-$cp.err"
  sim_log="$E2E_TMP/codepage-sim-$cp.log"
  e2e_decode "$client/files/C/E2E/CodePage$cp/$E2E_COMPUTERNAME.debug" "$sim_log"
  sim_report="$client/files/C/E2E/CodePage$cp/SUCCESS_report.txt"

  case $cp in
    1252) expected=$'>> Found local printer: Drücker\nERROR: Getting client printer (no handle): ??' ;;
    932) expected=$'ERROR: Getting client printer (no handle): Drucker\n>> Found local printer: 日本' ;;
  esac
  check_eq "code page $cp: Windows lists the printers so" "$expected" "$(printer_lines "$wine_log")"
  check_eq "code page $cp: the simulated client lists them the same" \
    "$(printer_lines "$wine_log")" "$(printer_lines "$sim_log")"
  # The report's lines after its head (which holds the time), byte for byte.
  check_eq "code page $cp: the output files hold the same bytes" \
    "$(tail -n +5 "$wine_report" | od -An -tx1 -w1000000)" "$(tail -n +5 "$sim_report" | od -An -tx1 -w1000000)"
done
check_eq "code page 1252: Drücker is the byte FC in the output file" 1 \
  "$(grep -c $'Local Printer: Dr\xfccker\r$' "$(e2e_unix 'C:\E2E\CodePage1252')/SUCCESS_report.txt")"
check_eq "code page 932: 日本 is the bytes 93 FA 96 7B in the output file" 1 \
  "$(grep -c $'Local Printer: \x93\xfa\x96\x7b\r$' "$(e2e_unix 'C:\E2E\CodePage932')/SUCCESS_report.txt")"

codepage_printers remove
