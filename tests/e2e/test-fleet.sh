#!/usr/bin/env bash
# The Windows zandolin-fleet.exe (beside ZandolinEngine.exe) under Wine:
# check on a sound INI file and on a broken one, and rehearse on a small
# fleet of captured clients with two worker processes; and the Windows
# zandolin-sim.exe on a simulated client.
source "$(dirname "$0")/lib.sh"

fleet_exe="$(dirname "$E2E_EXE")/zandolin-fleet.exe"
sim_exe="$(dirname "$E2E_EXE")/zandolin-sim.exe"
for exe in "$fleet_exe" "$sim_exe"; do
  if [ ! -f "$exe" ]; then
    e2e_fail "$(basename "$exe") is built" "no such file: $exe"
    exit 0
  fi
done
work="$E2E_TMP/fleet"
mkdir -p "$work/captures"
cd "$work" || exit 1

sound_ini() {
  printf '%s\r\n' "[GENERAL]" "UseActiveDirectory=False" "UseManualDefinitions=True" "AlwaysRun=False" \
    "ShowProgress=False" "[MANUAL DEFINITIONS SERVERS]" "FromServers=OLD" "ToServers=NEW" \
    "[NOTIFICATION SMTP]" "UseSMTP=False" "[NOTIFICATION FILE OUTPUT]" "UseFileOutput=True" \
    'FileOutputPath=C:\Deploy' "FileOutputName=migration.txt" "IncludeComputerName=True" \
    "IncludeOutcome=False" "WriteToEventLog=True" "[NOTIFICATION CLIENT POP-UP]" "UseClientPopup=False" \
    "UseSuccessClientPopup=False" "UseFailureClientPopup=False" "[DEPLOYMENT]" "CreateWebLaunchPage=False" \
    "CreateBatchFile=False" "IncludeMDAC=False" "[PRUNE]" "DeleteADOrphans=False" \
    "DeleteAllNonNetworked=False" "[SET_DEFAULT]" "DefaultType=1" "[SUPPORT]" "DebugOn=True"
}
sound_ini >sound.ini
sound_ini | sed 's/^AlwaysRun=False/AlwaysRun=Yes/' >broken.ini

# --- check ------------------------------------------------------------------

out=$(wine "$fleet_exe" check sound.ini 2>/dev/null | tr -d '\r')
check_eq "check: a sound INI file has no finding" "sound.ini: 0 errors, 0 warnings" "$out"
wine "$fleet_exe" check sound.ini >/dev/null 2>&1
check_eq "check: a sound INI file exits with 0" 0 $?
out=$(wine "$fleet_exe" check broken.ini 2>/dev/null | tr -d '\r' | head -1)
check_eq "check: a Boolean key with neither word is an error at its line" \
  'broken.ini:4: error: [GENERAL] AlwaysRun: the value "Yes" holds neither True nor False; every Boolean key must hold True or False, so the load fails: every run stops at the message box "Unable to get INI file contents, please check your file path and permissions." and waits there until someone clicks OK' \
  "$out"
wine "$fleet_exe" check broken.ini >/dev/null 2>&1
check_eq "check: an INI file with errors exits with 2" 2 $?
errors=$(wine "$fleet_exe" check broken.ini --json 2>/dev/null | python3 -c 'import json,sys; print(json.load(sys.stdin)["errors"])')
check_eq "check --json counts the errors" 1 "$errors"

# --- rehearse ---------------------------------------------------------------

# Six clients: Windows 10, XP, NT 4 and 98; each on OLD, one with a queue
# that NEW lacks. None has a default printer, which NT 4 and 98 count as a
# failed operation.
client() { # NAME PLATFORM MAJOR MINOR QUEUES...
  local name=$1 platform=$2 major=$3 minor=$4
  shift 4
  mkdir -p "captures/$name/files/C/Deploy"
  python3 - "$name" "$platform" "$major" "$minor" "$@" >"captures/$name/machine.json" <<'EOF'
import json, sys
name, platform, major, minor, *queues = sys.argv[1:]
computer, user = name.split("_")
print(json.dumps({"os": {"platformId": int(platform), "majorVersion": int(major), "minorVersion": int(minor)},
                  "computerName": computer, "userName": user,
                  "printers": [{"name": "\\\\OLD\\" + q, "serverName": "\\\\OLD", "shareName": q} for q in queues]}))
EOF
}
client PC01_ann 2 10 0 laser color
client PC02_bob 2 10 0 laser missing
client PC03_cid 2 5 1 color
client PC04_dan 2 4 0 laser
client PC05_eve 1 4 10 laser
client PC06_fay 2 10 0 plotter laser color
printf '{"printServers": {"NEW": {"queues": ["laser", "color", "plotter"]}}}' >servers.json
snapshot=$(find captures -type f -exec md5sum {} + | sort)

wine "$fleet_exe" rehearse --ini sound.ini --servers servers.json captures --out report --jobs 2 \
  >rehearse.out 2>rehearse.err
check_eq "rehearse: ends with exit code 0" 0 $?
check_eq "rehearse: says how many clients" 'Rehearsed 6 clients (0 skipped): report\index.html' \
  "$(tr -d '\r' <rehearse.out)"
check_eq "rehearse: no capture changes" "$snapshot" "$(find captures -type f -exec md5sum {} + | sort)"
columns() { # the CSV's columns by name, one client a line
  python3 - "$@" <<'EOF'
import csv, sys
with open("report/fleet.csv", newline="") as f:
    for row in csv.DictReader(f):
        print(",".join(row[c] for c in sys.argv[1:]))
EOF
}
check_eq "rehearse: every client's run as the fleet was made" \
  "PC01,full run,2,0,0,True
PC02,full run,1,1,1,False
PC03,full run,1,0,0,True
PC04,full run,1,0,0,False
PC05,full run,1,0,0,False
PC06,full run,3,0,0,True" \
  "$(columns computer run movedCount failedAddsCount lostCount statusRecorded)"
check_eq "rehearse: the failed add and what it means" \
  '\\NEW\missing (1801: the queue is missing on the target server)' "$(columns failedAdds | sed -n 2p)"
check_eq "rehearse: a transcript for each client" 6 "$(ls report/clients | wc -l)"
if grep -q '<script id="fleet-data" type="application/json">' report/index.html; then
  e2e_pass "rehearse: the page holds its data"
else
  e2e_fail "rehearse: the page holds its data" "no data in report/index.html"
fi

# --- zandolin-sim.exe -------------------------------------------------------

ended=$(wine "$sim_exe" --dry-run captures/PC01_ann --json 2>/dev/null |
  python3 -c 'import json,sys; t=json.load(sys.stdin); print(t["ended"], len(t["printersAfter"]))')
check_eq "zandolin-sim.exe runs the engine on a simulated client" "returned 2" "$ended"
