#!/usr/bin/env bash
# The event log's limit: a report longer than the 31,839 characters an
# insertion string may hold. Windows since Vista refuses such an entry
# (ReportEventA returns FALSE, last error 1500); Wine's ReportEventA takes
# any length. The engine does not look at the result either way, so its log
# is the same: the Windows build under Wine and zandolin-sim, which refuses
# the entry as Windows does, write the same lines.
source "$(dirname "$0")/lib.sh"

e2e_version win10

# 160 local printers with names of 200 characters: the inventory alone makes
# the report some 34,700 characters long.
names=()
printers=()
for i in $(seq 100 259); do
  name="E2E Long $i $(printf '%*s' 187 '' | tr ' ' 'x')"
  names+=("$name")
  printers+=("$name:LPT1:")
done
e2e_printers "" "${printers[@]}"

e2e_deploy EventLog
INI_WriteToEventLog=True INI_AlwaysRun=True e2e_ini "$DEPLOY_DIR/eventlog.ini"
E2E_WINEDEBUG=+eventlog e2e_run
check_eq "run ends with exit code 0" 0 "$RUN_RC"
log=$(e2e_debug_log)
size=$(sed -n 's/^[0-9a-f]*:fixme:advapi:ReportEventA ([0-9A-F]*,//p' "$RUN_ERR" | cut -d, -f6)
if [ -n "$size" ] && [ $((size)) -gt 31840 ]; then
  e2e_pass "the entry's text is longer than 31,839 characters ($((size - 1)))"
else
  e2e_fail "the entry's text is longer than 31,839 characters" "data size: '$size'"
fi
check_line "Wine takes the entry; the log says it was logged" "$log" \
  ">> Logged event in application event log."

# The same client on the simulator.
zandolin_sim="$E2E_LINUX_BUILD/zandolin-sim"
if [ -x "$zandolin_sim" ]; then
  client="$E2E_TMP/eventlog-sim"
  rm -rf "$client"
  mkdir -p "$client/files/C/Deploy"
  {
    echo '{ "printers": ['
    sep=""
    for name in "${names[@]}"; do
      printf '%s{ "name": "%s", "serverName": null, "portName": "LPT1:", "driverName": "Generic / Text Only" }\n' \
        "$sep" "$name"
      sep=","
    done
    echo '] }'
  } >"$client/machine.json"
  cp "$DEPLOY_DIR/eventlog.ini" "$client/files/C/Deploy/eventlog.ini"
  "$zandolin_sim" "$client" --json --trace >"$E2E_TMP/eventlog-sim.json" 2>"$E2E_TMP/eventlog-sim.err"
  check_eq "the simulator refuses the entry as Windows does: ReportEventA 0, last error 1500" "0 1500 []" \
    "$(python3 -c '
import json, sys
t = json.load(open(sys.argv[1]))
call = [c for c in t["calls"] if c.get("call") == "ReportEventA"][0]
print(call["result"], call["lastError"], json.dumps(t["eventLogWritten"]))' "$E2E_TMP/eventlog-sim.json")"
  python3 -c 'import json, sys; print(json.load(open(sys.argv[1]))["debugBuffer"].replace("\r", ""), end="")' \
    "$E2E_TMP/eventlog-sim.json" >"$E2E_TMP/eventlog-sim.log"
  section() { sed -n '/NOTIFICATION VIA EVENT LOG/,/^>> Finished notification/p' "$1"; }
  expected="$(printf '%*s' 23 '' | tr ' ' '*')     NOTIFICATION VIA EVENT LOG    $(printf '%*s' 22 '' | tr ' ' '*')
$(printf '%*s' 80 '' | tr ' ' '*')
>> Logged event in application event log.
>> Finished notification, abort status: False"
  check_eq "the Windows build's log of the event log" "$expected" "$(section "$log")"
  check_eq "the simulator's log of the event log is the same" "$expected" \
    "$(section "$E2E_TMP/eventlog-sim.log")"
else
  e2e_fail "the simulator refuses the entry" "no zandolin-sim beside $E2E_DEBUG"
fi

# The scripts after this one expect a prefix without these printers.
e2e_remove_printers "${names[@]}"
