#!/usr/bin/env bash
# The run status on Windows: the status file in the user's profile on Wine
# reporting Windows 10, the registry store on Wine reporting NT 4 and
# Windows 98, and a second run that takes the already-succeeded path.
source "$(dirname "$0")/lib.sh"

status_file="$(e2e_profile_dir)/Zandolin_status.log"
e2e_printers "E2E Laser" "E2E Laser:LPT1:"
out_dir=$(e2e_unix 'C:\E2E\StatusOut')
mkdir -p "$out_dir"
already="
This INI file has already succeeded on this machine.
If you would like to run this INI file again, please save it as a different name or 
please select the Always Run feature on the General step."

# --- Windows 10: the status file ---------------------------------------------------

e2e_version win10
e2e_deploy Status
INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\StatusOut' INI_FileOutputName=first.txt \
  e2e_ini "$DEPLOY_DIR/status.ini"
e2e_run
log=$(e2e_debug_log)
check_eq "first run ends with exit code 0" 0 "$RUN_RC"
check_line "first run runs" "$log" ">> Running Zandolin, abort status: False"
check_count "status file in the profile records the INI file as succeeded" \
  "$status_file" 'C:\E2E\Status\status.ini,True'$'\r' 1
check_no_line "the file store writes no registry lines" "$log" ">> Registry Key Value: False"

INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\StatusOut' INI_FileOutputName=second.txt \
  e2e_ini "$DEPLOY_DIR/status.ini"
e2e_run
log=$(e2e_debug_log)
check_eq "second run ends with exit code 0" 0 "$RUN_RC"
check_line "second run takes the already-succeeded path" "$log" \
  ">> This INI file has already successed on this machine."
check_no_line "second run lists no printers" "$log" ">> Getting client's list of printers <<"
check_eq "second run reports only that it already succeeded" "$already" \
  "$(tail -n +5 "$(e2e_plain "$out_dir/second.txt")")"
check_count "second run leaves the record as it was" \
  "$status_file" 'C:\E2E\Status\status.ini,True'$'\r' 1

# A run with a failed printer operation is recorded False and runs again.
e2e_deploy StatusFailing
INI_UseManualDefinitions=True INI_PopulateServerNames=NOSUCHSRV INI_PopulatePrinterNames=laser \
  e2e_ini "$DEPLOY_DIR/failing.ini"
e2e_run
check_count "failed operation recorded as False" \
  "$status_file" 'C:\E2E\StatusFailing\failing.ini,False'$'\r' 1
e2e_run
log=$(e2e_debug_log)
check_line "a run recorded False runs again" "$log" ">> Running Zandolin, abort status: False"
check_count "the record is rewritten in place" \
  "$status_file" 'C:\E2E\StatusFailing\failing.ini,False'$'\r' 1
check_count "other records survive the rewrite" \
  "$status_file" 'C:\E2E\Status\status.ini,True'$'\r' 1
check_eq "the rewritten file ends in a blank line" '\r\n\r\n' \
  "$(tail -c 4 "$status_file" | od -An -c | tr -d ' ')"
check_eq "the rewrite leaves no temporary file beside the status file" "" \
  "$(cd "$(dirname "$status_file")" && ls -a | grep -F 'Zandolin_status.log.')"

# --- NT 4 and Windows 98: the registry ------------------------------------------------

# $1 version, $2 deployment: the first run's checks common to both.
first_registry_run() {
  e2e_version "$1"
  e2e_deploy "$2"
  e2e_ini "$DEPLOY_DIR/$1.ini"
  key="HKCU\\Software\\Zandolin Engine\\Zandolin\\$DEPLOY\\$1.ini\\$E2E_USER"
  e2e_run
  log=$(e2e_debug_log)
  check_eq "$1: first run ends with exit code 0" 0 "$RUN_RC"
  check_line "$1: registry key of INI file and user" "$log" \
    ">> Getting Registry key: $DEPLOY\\$1.ini\\$E2E_USER"
  check_line "$1: nothing recorded before the first run" "$log" ">> Registry Key Value: False"
  check_eq "$1: no record in the status file" "" "$(grep -F "$1.ini" "$status_file")"
}

# NT 4 reads the default printer from the profile: the run succeeds.
first_registry_run nt40 StatusNT4
check_line "nt40: default printer read from the profile" "$log" "Default printer:E2E Laser"
check_eq "nt40: success saved in the registry" True "$(e2e_reg_value "$key" SUCCESS)"
e2e_run
log=$(e2e_debug_log)
check_line "nt40: second run reads the success" "$log" ">> Registry Key Value: True"
check_line "nt40: second run takes the already-succeeded path" "$log" \
  ">> This INI file has already successed on this machine."

# Wine as Windows 98 gives no default printer by enumeration (it behaves as
# NT there), so the run fails and False is saved; a success left by an
# earlier run is then read back.
first_registry_run win98 Status98
check_line "win98: default printer asked for by enumeration" "$log" \
  "ERROR: Getting default printer name by enumeration."
check_eq "win98: failure saved in the registry" False "$(e2e_reg_value "$key" SUCCESS)"
wine reg add "$key" /v SUCCESS /d True /f >/dev/null 2>&1
e2e_run
log=$(e2e_debug_log)
check_line "win98: second run reads the success" "$log" ">> Registry Key Value: True"
check_line "win98: second run takes the already-succeeded path" "$log" \
  ">> This INI file has already successed on this machine."

e2e_version win10
