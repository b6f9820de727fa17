#!/usr/bin/env bash
# The engine's start on Windows: finding and reading the INI file with the
# real profile functions, the debug file beside the executable, the event
# log entry, a load that aborts, a fatal stop, the command line.
source "$(dirname "$0")/lib.sh"

stars() { printf '%*s' "$1" '' | tr ' ' '*'; }
STARS80=$(stars 80)
BEGIN_TITLE="$(stars 30)     BEGIN DEBUG     $(stars 29)"
END_TITLE="$(stars 31)     END DEBUG     $(stars 30)"
CRLF=$'\r\n'

e2e_version win10
# No default printer yet: the inventory reports that, and nothing else.
wine reg delete 'HKCU\Software\Microsoft\Windows NT\CurrentVersion\Windows' /v Device /f \
  >/dev/null 2>&1

# --- a run from the deployment folder, with the event log ---------------------

e2e_deploy Foundation
INI_DomainName=corp.example.com INI_WriteToEventLog=True e2e_ini "$DEPLOY_DIR/foundation.ini"
E2E_WINEDEBUG=+eventlog e2e_run
check_eq "run ends with exit code 0" 0 "$RUN_RC"
check_file "debug file <computer>.debug beside the executable" \
  "$DEPLOY_DIR/$E2E_COMPUTERNAME.debug"
log=$(e2e_debug_log)
check_eq "decoded log opens with the BEGIN DEBUG banner" \
  "$STARS80"$'\n'"$BEGIN_TITLE"$'\n'"$STARS80" "$(head -n 3 "$log")"
check_eq "BEGIN DEBUG title line is 80 wide" 80 "${#BEGIN_TITLE}"
check_line "log shows the empty command line" "$log" ">> Command line parameter: "
check_line "log names the first INI file found" "$log" ">> First found INI file : foundation.ini"
check_line "log opens the INI file beside the executable" "$log" \
  ">> Opening INI File: C:\\E2E\\Foundation\\foundation.ini"
check_line "log echoes the domain read by the profile functions" "$log" \
  ">> DomainName: corp.example.com"
check_line "log echoes WriteToEventLog" "$log" ">> WriteToEventLog: True"
check_line "log echoes DebugOn" "$log" ">> DebugOn: True"
check_line "log reports the event written" "$log" ">> Logged event in application event log."
check_eq "decoded log closes with the END DEBUG banner" \
  "$STARS80"$'\n'"$END_TITLE"$'\n'"$STARS80" "$(tail -n 3 "$log")"

# The entry as Wine's event log receives it: type 4, category 0, event 20001,
# one string, and the outcome text as that string and as the data.
outcome="${CRLF}* ----- Computer: $E2E_COMPUTERNAME Username: $E2E_USER Printers ----- *"
outcome+="${CRLF}Warning no currently set default printer."
escaped=${outcome//$'\r'/\\r}
escaped=${escaped//$'\n'/\\n}
check_eq "event log string is the outcome text" "L\"$escaped\"" \
  "$(sed -n 's/^[0-9a-f]*:trace:eventlog:ReportEventW //p' "$RUN_ERR")"
check_eq "event log entry: type 4, category 0, id 20001, one string, text and NUL as data" \
  "$(printf '0x0004,0x0000,0x00004e21,0000000000000000,0x0001,0x%08x' $((${#outcome} + 1)))" \
  "$(sed -n 's/^[0-9a-f]*:fixme:advapi:ReportEventA ([0-9A-F]*,//p' "$RUN_ERR" | cut -d, -f1-6)"
check_eq "event source registered with the message file in the system folder" \
  'C:\windows\system32\EvntMsg.dll' \
  "$(e2e_reg_value 'HKLM\System\CurrentControlSet\Services\EventLog\Application\Zandolin' \
    EventMessageFile)"

# --- the INI file named on the command line ------------------------------------

other=$(e2e_unix 'C:\E2E\Foundation Two')
mkdir -p "$other"
INI_DomainName=other.example.com e2e_ini "$other/my config.ini"
e2e_run 'C:\E2E\Foundation Two\my config.ini'
log=$(e2e_debug_log)
check_eq "run with a quoted INI path ends with exit code 0" 0 "$RUN_RC"
check_line "log shows the command line as the system passed it" "$log" \
  '>> Command line parameter: "C:\E2E\Foundation Two\my config.ini"'
check_line "quotes removed from the INI path" "$log" \
  '>> Opening INI File: C:\E2E\Foundation Two\my config.ini'
check_line "INI file of the command line read" "$log" ">> DomainName: other.example.com"
check_no_line "no search beside the executable" "$log" ">> First found INI file : foundation.ini"

# Through cmd: an unquoted path with blanks, blanks after the program name
# skipped, trailing blanks kept.
rm -f "$DEPLOY_DIR/$E2E_COMPUTERNAME.debug"
(cd "$E2E_TMP" && timeout 60 wine cmd /c \
  'C:\E2E\Foundation\ZandolinEngine.exe   C:\E2E\Foundation Two\my config.ini ' >/dev/null 2>&1)
log=$(e2e_debug_log)
check_line "command line taken after the program name and its blanks, untouched" "$log" \
  '>> Command line parameter: C:\E2E\Foundation Two\my config.ini '
check_line "unquoted INI path with blanks read" "$log" ">> DomainName: other.example.com"

# --- the executable in the root of a drive -------------------------------------------

# The application path keeps its backslash there, and the engine's own
# backslash doubles it.
root_dir=$(e2e_unix 'C:\')
cp "$E2E_EXE" "$root_dir/ZandolinEngine.exe"
INI_DomainName=root.example.com e2e_ini "$root_dir/root.ini"
DEPLOY='C:' DEPLOY_DIR=$root_dir e2e_run
log=$(DEPLOY_DIR=$root_dir e2e_debug_log)
check_eq "run from a drive's root ends with exit code 0" 0 "$RUN_RC"
check_line "INI file found in the drive's root" "$log" '>> Opening INI File: C:\\root.ini'
check_line "INI file in the drive's root read" "$log" ">> DomainName: root.example.com"
rm -f "$root_dir/ZandolinEngine.exe" "$root_dir/root.ini" "$root_dir/$E2E_COMPUTERNAME.debug"

# --- no INI file beside the executable --------------------------------------------

e2e_deploy NoIni
INI_DomainName=hidden.example.com e2e_ini "$DEPLOY_DIR/.hidden.ini"   # hidden: a dot file
mkdir -p "$DEPLOY_DIR/folder.ini"
e2e_run
log=$(e2e_debug_log)
check_eq "run without an INI file ends with exit code 0" 0 "$RUN_RC"
check_line "hidden files and folders are not INI files" "$log" ">> First found INI file : "
check_line "missing INI file reported" "$log" "ERROR: Unable to find an INI File."
check_eq "run without an INI file still closes its log" \
  "$STARS80"$'\n'"$END_TITLE"$'\n'"$STARS80" "$(tail -n 3 "$log")"

# --- a load that aborts -------------------------------------------------------------

e2e_deploy Abort
INI_UseSMTP=Yes e2e_ini "$DEPLOY_DIR/abort.ini"
started=$(date +%s)
e2e_run
took=$(($(date +%s) - started))
log=$(e2e_debug_log)
check_eq "aborted load ends with exit code 0" 0 "$RUN_RC"
check_eq "aborted load does not wait on its message box" yes \
  "$([ "$took" -lt 30 ] && echo yes || echo "no, took $took s")"
check_line "aborted load: the message in the debug log" "$log" \
  "Unable to get INI file contents, please check your file path and permissions."
check_line "aborted load: the bad Boolean read as False" "$log" ">> UseSMTP: False"
check_no_line "aborted load: no run" "$log" ">> Running Zandolin, abort status: False"
check_eq "aborted load closes its log" \
  "$STARS80"$'\n'"$END_TITLE"$'\n'"$STARS80" "$(tail -n 3 "$log")"
status=$(e2e_plain "$(e2e_profile_dir)/Zandolin_status.log")
check_eq "aborted load records no status" "" "$(grep -F 'abort.ini' "$status")"

# --- a fatal stop ---------------------------------------------------------------------

e2e_deploy Fatal
INI_MDACOption=40000 e2e_ini "$DEPLOY_DIR/fatal.ini"
e2e_run
check_eq "fatal stop: exit code 6" 6 "$RUN_RC"
check_eq "fatal stop: the error on standard error" "Run-time error '6': Overflow" \
  "$(tr -d '\r' <"$RUN_ERR")"
check_eq "fatal stop: nothing on standard output" "" "$(cat "$RUN_OUT")"
check_no_file "fatal stop: no debug file" "$DEPLOY_DIR/$E2E_COMPUTERNAME.debug"
