#!/usr/bin/env bash
# The printers on Windows: the inventory of local printers, the default
# printer read and set on Wine reporting itself as Windows 10 and as NT 4, a
# connection that fails, and the error rows for names that do not exist.
source "$(dirname "$0")/lib.sh"

USERKEY='HKCU\Software\Microsoft\Windows NT\CurrentVersion'

e2e_printers "E2E Laser" "E2E Laser:LPT1:" "E2E Color:FILE:"

out_dir=$(e2e_unix 'C:\E2E\PrintersOut')
mkdir -p "$out_dir"
header="* ----- Computer: $E2E_COMPUTERNAME Username: $E2E_USER Printers ----- *"

# check_report NAME FILE EXPECTED: the output file holds the run's report:
# its head with the date and time of the run, then the lines expected.
check_report() {
  local plain
  plain=$(e2e_plain "$2")
  check_eq "$1: report head: blank lines around the stamp" "|||" \
    "$(sed -n '1p;2p;4p' "$plain" | tr '\n' '|')"
  local stamp
  stamp=$(sed -n 3p "$plain")
  local form='^Report At: ([0-9]{1,2})/([0-9]{1,2})/([0-9]{4}) [0-9]{1,2}:[0-9]{2}:[0-9]{2} (AM|PM)$'
  if [[ $stamp =~ $form ]] &&
     [ "${BASH_REMATCH[1]}/${BASH_REMATCH[2]}/${BASH_REMATCH[3]}" == "$(date +%-m/%-d/%Y)" ]; then
    e2e_pass "$1: report stamped with today's date in the general form"
  else
    e2e_fail "$1: report stamped with today's date in the general form" "line 3: $stamp"
  fi
  check_eq "$1: report" "$3" "$(tail -n +5 "$plain")"
}

# --- Windows 10 ----------------------------------------------------------------------

e2e_version win10
e2e_deploy Printers10
INI_UseManualDefinitions=True INI_AlwaysRun=True \
  INI_PopulateServerNames=NOSUCHSRV INI_PopulatePrinterNames=laser \
  INI_DefaultType=2 INI_DefaultPrinterName="E2E Color" \
  INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\PrintersOut\' INI_FileOutputName=win10.txt \
  e2e_ini "$DEPLOY_DIR/printers.ini"
e2e_run
log=$(e2e_debug_log)
check_eq "Windows 10 run ends with exit code 0" 0 "$RUN_RC"
check_report "Windows 10" "$out_dir/win10.txt" "
$header
Local Printer: E2E Color
Local Printer: E2E Laser
Default Printer:E2E Laser

* ----- Maintenance Populate ----- *
Error (0) populating network printer: \\\\NOSUCHSRV\\laser
Set default printer: E2E Color"
check_line "Windows 10: inventory logged" "$log" ">> Found local printer: E2E Laser"
check_line "Windows 10: default printer logged" "$log" "Default printer:E2E Laser"
check_line "Windows 10: failed connection logged" "$log" \
  'ERROR: Adding client networked printer: \\NOSUCHSRV\laser'
check_line "Windows 10: last error of the failed connection" "$log" "SYSTEM ERROR: 0"
check_eq "Windows 10: default printer set in the system" "E2E Color,winspool,FILE:" \
  "$(e2e_reg_value "$USERKEY\\Windows" Device)"

# A default printer that does not exist; the file name carries computer,
# user and outcome.
e2e_deploy Printers10Missing
INI_UseManualDefinitions=True INI_AlwaysRun=True \
  INI_DefaultType=2 INI_DefaultPrinterName="E2E Nowhere" \
  INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\PrintersOut' INI_FileOutputName=missing.txt \
  INI_IncludeComputerName=True INI_IncludeOutcome=True \
  e2e_ini "$DEPLOY_DIR/missing.ini"
e2e_run
log=$(e2e_debug_log)
named="$out_dir/${E2E_COMPUTERNAME}_${E2E_USER}_SUCCESS_missing.txt"
check_file "output file named by computer, user and outcome" "$named"
check_report "Windows 10, unknown default" "$named" "
$header
Local Printer: E2E Color
Local Printer: E2E Laser
Default Printer:E2E Color
Error (1801) setting default printer: E2E Nowhere"
check_line "Windows 10, unknown default: logged" "$log" \
  "ERROR: Setting default printer: E2E Nowhere"
check_line "Windows 10, unknown default: last error" "$log" "SYSTEM ERROR: 1801"
check_eq "Windows 10, unknown default: system default unchanged" "E2E Color,winspool,FILE:" \
  "$(e2e_reg_value "$USERKEY\\Windows" Device)"

# --- Windows NT 4: the profile's "device" and "PrinterPorts" ------------------------

e2e_version nt40
e2e_deploy Printers4
INI_UseManualDefinitions=True INI_AlwaysRun=True \
  INI_PopulateServerNames=NOSUCHSRV INI_PopulatePrinterNames=laser \
  INI_DefaultType=2 INI_DefaultPrinterName="E2E Laser" \
  INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\PrintersOut' INI_FileOutputName=nt4.txt \
  e2e_ini "$DEPLOY_DIR/printers.ini"
e2e_run
log=$(e2e_debug_log)
check_eq "NT 4 run ends with exit code 0" 0 "$RUN_RC"
check_report "NT 4" "$out_dir/nt4.txt" "
$header
Local Printer: E2E Color
Local Printer: E2E Laser
Default Printer:E2E Color

* ----- Maintenance Populate ----- *
Error (0) populating network printer: \\\\NOSUCHSRV\\laser
Set default printer: E2E Laser"
check_eq "NT 4: device string written from the PrinterPorts entry" "E2E Laser,winspool,LPT1:" \
  "$(e2e_reg_value "$USERKEY\\Windows" Device)"

# A printer without a PrinterPorts entry cannot become the default here. Wine
# leaves the last error at 0 for a key the profile does not hold.
e2e_deploy Printers4Missing
INI_UseManualDefinitions=True INI_AlwaysRun=True \
  INI_DefaultType=2 INI_DefaultPrinterName="E2E Nowhere" \
  INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\PrintersOut' \
  INI_FileOutputName=nt4-missing.txt \
  e2e_ini "$DEPLOY_DIR/missing.ini"
e2e_run
log=$(e2e_debug_log)
check_report "NT 4, unknown default" "$out_dir/nt4-missing.txt" "
$header
Local Printer: E2E Color
Local Printer: E2E Laser
Default Printer:E2E Laser
Error (0) getting reference for setting default printer: E2E Nowhere"
check_line "NT 4, unknown default: logged" "$log" \
  "ERROR: getting reference for setting default printer: E2E Nowhere"
check_eq "NT 4, unknown default: device unchanged" "E2E Laser,winspool,LPT1:" \
  "$(e2e_reg_value "$USERKEY\\Windows" Device)"

e2e_version win10

# --- installing local printers with a driver file --------------------------------

# The driver file is copied into the system folder, or its absence reported.
# The file is no real driver: Wine refuses the driver (6) and then the
# printer (87), and those answers are reported as they come.
e2e_deploy PrintersDriver
drivers=$(e2e_unix 'C:\E2E\Drivers')
mkdir -p "$drivers"
printf 'E2E driver file\r\n' >"$drivers/e2edrv.dll"
system32=$(e2e_unix 'C:\windows\system32')
rm -f "$system32/e2edrv.dll"
INI_UseManualDefinitions=True INI_AlwaysRun=True \
  INI_PopulateServerNames=".,." INI_PopulatePrinterNames="E2E Laser,E2E Fresh" \
  INI_DriverPrinterName="E2E Laser,E2E Fresh" INI_DriverName="E2E Driver,E2E Driver" \
  INI_DriverFileName="e2edrv.dll,absent.dll" INI_DriverPortName="LPT1:,LPT1:" \
  INI_DriverSharePath='C:\E2E\Drivers' \
  INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\PrintersOut' INI_FileOutputName=driver.txt \
  e2e_ini "$DEPLOY_DIR/driver.ini"
e2e_run
log=$(e2e_debug_log)
check_eq "driver file copied into the system folder" "$(cat "$drivers/e2edrv.dll")" \
  "$(cat "$system32/e2edrv.dll" 2>/dev/null)"
check_report "local printers with drivers" "$out_dir/driver.txt" "
$header
Local Printer: E2E Color
Local Printer: E2E Laser
Default Printer:E2E Laser

* ----- Maintenance Populate ----- *
Warning (6) unable to add provided driver information: E2E Laser
Error (87) populating local printer: E2E Laser
Warning (File not found) unable to install provided driver: E2E Fresh
Warning (6) unable to add provided driver information: E2E Fresh
Error (87) populating local printer: E2E Fresh"
check_eq "missing driver file: the copy's error in the log" \
  "ERROR: Copying printer driver to windows folder.|ERROR: 53|ERROR DESCRIPTION: File not found" \
  "$(grep -A2 -F 'ERROR: Copying printer driver' "$log" | tr '\n' '|' | sed 's/|$//')"
