#!/usr/bin/env bash
# zandolin-capture.exe on Wine reporting Windows 10, NT 4 and Windows 98: the
# capture of local printers, a default printer, the run status in the
# profile or the registry, the event source and the Point and Print policy;
# zandolin-sim reads it, and the same INI file run by ZandolinEngine.exe and
# by zandolin-sim on the capture gives the same report and debug log but for
# what Wine decides. Then what it does with bad input. Wine keeps no network
# connections: the runs populate a connection that fails and prune a local
# printer.
source "$(dirname "$0")/lib.sh"

if [ ! -x "$E2E_LINUX_BUILD/zandolin-sim" ]; then
  e2e_fail "capture" "no zandolin-sim beside $E2E_DEBUG"
  exit 0
fi

SETTINGS='HKCU\Software\Zandolin Engine\Zandolin'
EVENTKEY='HKLM\System\CurrentControlSet\Services\EventLog\Application\Zandolin'
POLICYKEY='HKLM\Software\Policies\Microsoft\Windows NT\Printers\PointAndPrint'
profile=$(e2e_profile_dir)

wine reg add "$EVENTKEY" /v EventMessageFile /d 'C:\windows\system32\EvntMsg.dll' /f >/dev/null 2>&1
wine reg add "$POLICYKEY" /v RestrictDriverInstallationToAdministrators /t REG_DWORD /d 1 /f >/dev/null 2>&1

# Wine's AddPrinterConnectionA leaves the last error at 0 where Windows, and
# the simulated client, give 1801 for a queue that no server shares.
connection_lines=(
  'Error (0) populating network printer: \\NOSUCHSRV\laser|Error (1801) populating network printer: \\NOSUCHSRV\laser'
  'SYSTEM ERROR: 0|SYSTEM ERROR: 1801'
)

# capture_ini NAME: a deployment folder for NAME whose INI file moves
# nothing, populates a connection that fails, prunes the local printer
# "E2E Old", sets "E2E Color" as the default and reports to a file and the
# event log.
capture_ini() {
  e2e_deploy "$1"
  INI_UseManualDefinitions=True \
    INI_PopulateServerNames=NOSUCHSRV INI_PopulatePrinterNames=laser \
    INI_PruneServerNames=. INI_PrunePrinterNames="E2E Old" \
    INI_DefaultType=2 INI_DefaultPrinterName="E2E Color" \
    INI_UseFileOutput=True INI_FileOutputPath="$DEPLOY" INI_FileOutputName=report.txt \
    INI_WriteToEventLog=True \
    e2e_ini "$DEPLOY_DIR/capture.ini"
}

# capture_and_compare NAME [WINE_LINE|SIM_LINE...]: captures the client with
# the INI file of the deployment, rehearses the capture, runs the engine,
# and compares the two runs.
capture_and_compare() {
  local name=$1
  shift
  e2e_capture --ini "$DEPLOY\\capture.ini"
  check_eq "$name: capture ends with exit status 0" 0 "$CAPTURE_RC"
  check_eq "$name: capture says where it wrote" "$DEPLOY\\${E2E_COMPUTERNAME}_$E2E_USER" \
    "$(tr -d '\r' <"$CAPTURE_OUT")"
  check_eq "$name: capture writes nothing to standard error" "" "$(cat "$CAPTURE_ERR")"
  e2e_rehearse "$CAPTURED"
  rm -f "$DEPLOY_DIR/report.txt"
  e2e_run
  check_eq "$name: the engine's run ends with exit code 0" 0 "$RUN_RC"
  e2e_same_run "$name" "$DEPLOY_DIR/report.txt" "$(e2e_debug_log)" "$@"
}

# --- Windows 10 ----------------------------------------------------------------------

e2e_version win10
e2e_printers "E2E Laser" "E2E Laser:LPT1:" "E2E Color:FILE:" "E2E Old:LPT2:"
capture_ini Capture10
printf 'C:\\E2E\\Other\\other.ini,True\r\n%s\\capture.ini,False\r\n' "$DEPLOY" >"$E2E_TMP/status10"
cp "$E2E_TMP/status10" "$profile/Zandolin_status.log"
capture_and_compare "Windows 10" "${connection_lines[@]}"

m="$CAPTURED/machine.json"
check_eq "Windows 10: the version" '{"majorVersion": 10, "minorVersion": 0, "platformId": 2}' \
  "$(e2e_json "$m" '{k: m["os"][k] for k in ("platformId", "majorVersion", "minorVersion")}')"
check_eq "Windows 10: computer, user and folders" \
  "[\"$E2E_COMPUTERNAME\", \"$E2E_USER\", \"C:\\\\E2E\\\\Capture10\\\\ZandolinEngine.exe\", \"C:\\\\users\\\\$E2E_USER\", \"C:\\\\windows\", \"C:\\\\windows\\\\system32\"]" \
  "$(e2e_json "$m" '[m[k] for k in ("computerName", "userName", "exePath", "profileDir", "windowsDir", "systemDir")]')"
check_eq "Windows 10: the printers as the engine lists them" \
  '[["E2E Color", null, "FILE:", "Generic / Text Only", 64], ["E2E Laser", null, "LPT1:", "Generic / Text Only", 64], ["E2E Old", null, "LPT2:", "Generic / Text Only", 64]]' \
  "$(e2e_json "$m" '[[p["name"], p["serverName"], p["portName"], p["driverName"], p["attributes"]] for p in m["printers"]]')"
check_eq "Windows 10: the default printer" '"E2E Laser"' "$(e2e_json "$m" 'm["defaultPrinter"]')"
if cmp -s "$E2E_TMP/status10" "$CAPTURED/files/C/users/$E2E_USER/Zandolin_status.log"; then
  e2e_pass "Windows 10: the status file kept as it was"
else
  e2e_fail "Windows 10: the status file kept as it was" "$(od -c "$CAPTURED/files/C/users/$E2E_USER/Zandolin_status.log" 2>&1)"
fi
check_eq "Windows 10: the INI file kept" "$(cat "$DEPLOY_DIR/capture.ini")" \
  "$(cat "$CAPTURED/files/C/E2E/Capture10/capture.ini")"
check_eq "Windows 10: the event source" '{"EventMessageFile": "C:\\windows\\system32\\EvntMsg.dll"}' \
  "$(e2e_json "$m" 'm["registry"]["HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\EventLog\\Application\\Zandolin"]')"
check_eq "Windows 10: the Point and Print policy" '{"RestrictDriverInstallationToAdministrators": 1}' \
  "$(e2e_json "$m" 'm["pointAndPrint"]')"
check_eq "Windows 10: the user is an administrator" 'true' "$(e2e_json "$m" 'm["user"]["isAdmin"]')"
# Wine answers any server's name with its own printers.
check_eq "Windows 10: the print server the INI file names, as Wine answers for it" \
  '{"NOSUCHSRV": ["E2E Color", "E2E Laser", "E2E Old"]}' \
  "$(e2e_json "$m" '{s: sorted(q["name"] for q in v["queues"]) for s, v in m["printServers"].items()}')"
check_eq "Windows 10: no notes" '[]' "$(e2e_json "$m" 'm["capture"]["notes"]')"

# The run failed a connection and recorded False. Once a run has recorded
# True, a capture rehearses a run that has already succeeded, as the
# engine's next run is.
printf '%s\\capture.ini,True\r\n' "$DEPLOY" >"$profile/Zandolin_status.log"
capture_and_compare "Windows 10, succeeded"
check_line "Windows 10, succeeded: the rehearsal says so" "$SIM_REPORT" \
  "This INI file has already succeeded on this machine."
rm -f "$profile/Zandolin_status.log"

# --- Windows NT 4: the profile's device and ports, the status in the registry ---------

e2e_version nt40
wine reg delete 'HKCU\Software\Zandolin Engine' /f >/dev/null 2>&1
e2e_printers "E2E Laser" "E2E Laser:LPT1:" "E2E Color:FILE:" "E2E Old:LPT2:"
capture_ini Capture4
wine reg add "$SETTINGS\\C:\\E2E\\Other\\other.ini\\$E2E_USER" /v SUCCESS /d True /f >/dev/null 2>&1
wine reg add "$SETTINGS\\C:\\E2E\\Capture4\\capture.ini\\$E2E_USER" /v SUCCESS /d False /f >/dev/null 2>&1
capture_and_compare "NT 4" "${connection_lines[@]}"
m="$CAPTURED/machine.json"
check_eq "NT 4: the version" '[2, 4, 0]' "$(e2e_json "$m" '[m["os"][k] for k in ("platformId", "majorVersion", "minorVersion")]')"
check_eq "NT 4: the profile's default device and printer ports" \
  '{"PrinterPorts": {"E2E Color": "winspool,FILE:,15,45", "E2E Laser": "winspool,LPT1:,15,45", "E2E Old": "winspool,LPT2:,15,45"}, "Windows": {"device": "E2E Laser,winspool,LPT1:"}}' \
  "$(e2e_json "$m" 'm["winIni"]')"
check_eq "NT 4: the run status below the engine's settings" \
  "{\"HKEY_CURRENT_USER\\\\Software\\\\Zandolin Engine\\\\Zandolin\\\\C:\\\\E2E\\\\Capture4\\\\capture.ini\\\\$E2E_USER\": {\"SUCCESS\": \"False\"}, \"HKEY_CURRENT_USER\\\\Software\\\\Zandolin Engine\\\\Zandolin\\\\C:\\\\E2E\\\\Other\\\\other.ini\\\\$E2E_USER\": {\"SUCCESS\": \"True\"}}" \
  "$(e2e_json "$m" '{k: v for k, v in m["registry"].items() if k.startswith("HKEY_CURRENT_USER")}')"
check_eq "NT 4: no status file" "" "$(ls "$CAPTURED/files/C/users" 2>/dev/null)"

# --- Windows 98 ------------------------------------------------------------------------

e2e_version win98
e2e_printers "E2E Laser" "E2E Laser:LPT1:" "E2E Color:FILE:" "E2E Old:LPT2:"
capture_ini Capture98
capture_and_compare "Windows 98"
m="$CAPTURED/machine.json"
check_eq "Windows 98: the version" '[1, 4, 10]' "$(e2e_json "$m" '[m["os"][k] for k in ("platformId", "majorVersion", "minorVersion")]')"
# Wine enumerates no default printer for this generation, and the engine
# reports that; the capture keeps no default either.
check_eq "Windows 98: no default printer enumerated" 'null' "$(e2e_json "$m" 'm["defaultPrinter"]')"
check_line "Windows 98: the engine finds no default either" "$(e2e_plain "$DEPLOY_DIR/report.txt")" \
  "Error (0) determining default printer."

e2e_version win10

# --- bad input -------------------------------------------------------------------------

e2e_remove_printers "E2E Color" "E2E Old"
e2e_printers "E2E Laser" "E2E Laser:LPT1:"
capture_ini CaptureBad

# An output folder below a file cannot be made.
e2e_capture "$DEPLOY\\capture.ini\\out"
check_eq "output folder that cannot be written: exit status 1" 1 "$CAPTURE_RC"
message=$(tr -d '\r' <"$CAPTURE_ERR")
prefix="zandolin-capture: the capture cannot be written into $DEPLOY\\capture.ini\\out: "
if [ "${message#"$prefix"}" != "$message" ] && [ -n "${message#"$prefix"}" ]; then
  e2e_pass "output folder that cannot be written: the message names it and says why"
else
  e2e_fail "output folder that cannot be written: the message names it and says why" "$message"
fi
check_eq "output folder that cannot be written: nothing written" "ZandolinEngine.exe capture.ini zandolin-capture.exe" \
  "$(ls "$DEPLOY_DIR" | sort | tr '\n' ' ' | sed 's/ $//')"

# An INI file that cannot be read: the client is captured without it.
e2e_capture --ini 'C:\E2E\nowhere.ini'
check_eq "INI file that cannot be read: exit status 1" 1 "$CAPTURE_RC"
check_eq "INI file that cannot be read: the message" \
  "zandolin-capture: the INI file C:\\E2E\\nowhere.ini cannot be read (File not found); the capture holds the client without what it names" \
  "$(tr -d '\r' <"$CAPTURE_ERR")"
check_eq "INI file that cannot be read: the note" \
  '["The INI file C:\\E2E\\nowhere.ini could not be read (File not found): no print server and no directory was asked."]' \
  "$(e2e_json "$CAPTURED/machine.json" 'm["capture"]["notes"]')"
check_eq "INI file that cannot be read: the client captured" '["E2E Laser"]' \
  "$(e2e_json "$CAPTURED/machine.json" '[p["name"] for p in m["printers"]]')"

# A printer named with a character the ANSI code page lacks: Windows lists it
# by a name with the character replaced, under which it cannot be opened.
python3 - "$E2E_TMP/omega.reg" "$E2E_TMP/omega-removed.reg" <<'PY'
import sys
name = "E2E \u03a9mega"
printers = "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Print\\Printers\\" + name
user = "HKEY_CURRENT_USER\\Software\\Microsoft\\Windows NT\\CurrentVersion"
def write(path, lines):
    text = "\r\n".join(["Windows Registry Editor Version 5.00", ""] + lines + [""])
    open(path, "wb").write(b"\xff\xfe" + text.encode("utf-16-le"))
write(sys.argv[1], [
    "[" + printers + "]", '"Name"="' + name + '"', '"Port"="LPT1:"',
    '"Printer Driver"="Generic / Text Only"', '"Attributes"=dword:00000040', '"Datatype"="RAW"',
    '"Print Processor"="WinPrint"', "",
    "[" + user + "\\Devices]", '"' + name + '"="winspool,LPT1:"', "",
    "[" + user + "\\PrinterPorts]", '"' + name + '"="winspool,LPT1:,15,45"'])
write(sys.argv[2], [
    "[-" + printers + "]", "",
    "[" + user + "\\Devices]", '"' + name + '"=-', "",
    "[" + user + "\\PrinterPorts]", '"' + name + '"=-'])
PY
wine regedit /S "$(winepath -w "$E2E_TMP/omega.reg" 2>/dev/null)" >/dev/null 2>&1
capture_and_compare "printer name outside the code page" "${connection_lines[@]}"
listed=$(e2e_json "$CAPTURED/machine.json" '[p["name"] for p in m["printers"] if p["name"] != "E2E Laser"][0]')
check_eq "printer name outside the code page: kept with the failure of its opening" \
  "[{\"call\": \"OpenPrinterA\", \"lastError\": 1801, \"match\": $listed, \"result\": 0, \"skip\": 0}]" \
  "$(e2e_json "$CAPTURED/machine.json" 'm["faults"]')"
check_line "printer name outside the code page: the engine cannot open it either" \
  "$(e2e_plain "$DEPLOY_DIR/report.txt")" "Error getting handle to printer: ${listed//\"/}"

# The scripts after this one expect a prefix without these printers and keys.
wine regedit /S "$(winepath -w "$E2E_TMP/omega-removed.reg" 2>/dev/null)" >/dev/null 2>&1
e2e_remove_printers "E2E Laser"
wine reg delete "$EVENTKEY" /f >/dev/null 2>&1
wine reg delete "$POLICYKEY" /f >/dev/null 2>&1
wine reg delete 'HKCU\Software\Zandolin Engine' /f >/dev/null 2>&1
