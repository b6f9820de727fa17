#!/usr/bin/env bash
# Directory-driven migration on Windows against a real directory: a private
# slapd on loopback (tests/servers/ldap), bound as host:port. The query is
# found and listed as on the simulated client in its ldap form against the
# same server; a directory of more than 1000 queues is cut at the server's
# limit; a server that does not answer fails the bind (the first failure
# path), a connection dropped at the query fails the query (the second).
# Wine keeps no network printer connections, so the client here has only
# local printers: the moves and orphans on the same server are those of the
# simulated client (tests/SimDirectoryTest.cpp).
source "$(dirname "$0")/lib.sh"

here=$(cd "$(dirname "$0")" && pwd)
slapd_script="$here/../servers/ldap/start-slapd.sh"
context="DC=corp,DC=example,DC=com"
zandolin_sim="$E2E_LINUX_BUILD/zandolin-sim"

for tool in slapd slapadd python3; do
  if ! command -v "$tool" >/dev/null && [ ! -x "/usr/sbin/$tool" ]; then
    e2e_fail "directory server" "$tool is not installed"
    exit 0
  fi
done
export PATH="$PATH:/usr/sbin"

# --- helpers ----------------------------------------------------------------------

SLAPD_PIDS=()
HELPER_PIDS=()
stop_servers() {
  local pid
  for pid in "${SLAPD_PIDS[@]}"; do kill -9 "$pid" 2>/dev/null; done
  for pid in "${HELPER_PIDS[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
  SLAPD_PIDS=()
  HELPER_PIDS=()
}
trap stop_servers EXIT

# A loopback port nobody listens on at the moment.
free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# queues_ldif FILE NAME:SHARE...: print queues below the naming context; a
# queue's common name is its position, its name and share name as given.
queues_ldif() {
  local file=$1 i=0 queue
  shift
  : >"$file"
  for queue in "$@"; do
    printf 'dn: cn=q%d,%s\nobjectClass: printQueue\ncn: q%d\nname: %s\nprintShareName: %s\nobjectCategory: printQueue\n\n' \
      "$i" "$context" "$i" "${queue%%:*}" "${queue#*:}" >>"$file"
    i=$((i + 1))
  done
}

# start_slapd NAME LDIF: a server with those queues; sets SLAPD_PORT. The
# port may be taken between the look and the start: others are tried.
start_slapd() {
  local work="$E2E_TMP/slapd-$1" attempt pid
  for attempt in 1 2 3 4 5; do
    rm -rf "$work"
    SLAPD_PORT=$(free_port)
    if pid=$(bash "$slapd_script" "$work" "$SLAPD_PORT" "$context" "$2" 2>"$E2E_TMP/slapd-$1.err"); then
      SLAPD_PIDS+=("$pid")
      for _ in $(seq 1 100); do
        (exec 3<>"/dev/tcp/127.0.0.1/$SLAPD_PORT") 2>/dev/null && return 0
        sleep 0.05
      done
    fi
  done
  return 1
}

# start_relay TARGET_PORT: a relay to the server that closes every second
# connection (a query's, after its bind's) when its second request (the
# search) comes; sets RELAY_PORT.
start_relay() {
  local portfile="$E2E_TMP/relay.port"
  rm -f "$portfile"
  python3 - "$1" "$portfile" <<'PY' >/dev/null 2>&1 &
import selectors, socket, sys, threading
target, portfile = int(sys.argv[1]), sys.argv[2]
listener = socket.socket()
listener.bind(("127.0.0.1", 0))
listener.listen(8)
open(portfile + ".tmp", "w").write(str(listener.getsockname()[1]))
import os; os.rename(portfile + ".tmp", portfile)
count = 0
def serve(client, number):
    server = socket.create_connection(("127.0.0.1", target))
    requests = 0
    sel = selectors.DefaultSelector()
    sel.register(client, selectors.EVENT_READ, server)
    sel.register(server, selectors.EVENT_READ, client)
    while True:
        for key, _ in sel.select():
            data = key.fileobj.recv(65536)
            if key.fileobj is client:
                requests += 1
                if number % 2 == 0 and requests == 2:
                    data = b""
            if not data:
                client.close(); server.close(); return
            key.data.sendall(data)
while True:
    c, _ = listener.accept()
    count += 1
    threading.Thread(target=serve, args=(c, count), daemon=True).start()
PY
  HELPER_PIDS+=($!)
  for _ in $(seq 1 100); do
    [ -f "$portfile" ] && break
    sleep 0.05
  done
  RELAY_PORT=$(cat "$portfile" 2>/dev/null)
}

out_dir=$(e2e_unix 'C:\E2E\DirectoryOut')
mkdir -p "$out_dir"

# dir_run NAME DOMAIN: the engine with the directory way on for the domain,
# its report into NAME.txt; sets LOG and OUT (report without its head).
dir_run() {
  e2e_deploy "Directory$1"
  INI_UseActiveDirectory=True INI_AlwaysRun=True INI_DomainName="$2" \
    INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\DirectoryOut' INI_FileOutputName="$1.txt" \
    e2e_ini "$DEPLOY_DIR/directory.ini"
  rm -f "$out_dir/$1.txt"
  e2e_run
  LOG=$(e2e_debug_log)
  OUT="$E2E_TMP/directory-$1.report"
  tail -n +5 "$(e2e_plain "$out_dir/$1.txt")" >"$OUT"
}

# The lines of a report from its line "* ----- AD Printers ----- *" up to
# the next empty line.
ad_section() { sed -n '/^\* ----- AD Printers ----- \*$/,/^$/p' "$1" | sed '/^$/d'; }

e2e_version win10
e2e_printers "E2E Laser" "E2E Laser:LPT1:"
header="* ----- Computer: $E2E_COMPUTERNAME Username: $E2E_USER Printers ----- *"

# --- the query ------------------------------------------------------------------------

queues_ldif "$E2E_TMP/queues.ldif" NEW-laser:laser OLD-color:color NEW-SRV-LaserJet:LaserJet \
  OLD-plot:plot NEW-plot:plot
if ! start_slapd small "$E2E_TMP/queues.ldif"; then
  e2e_fail "directory server starts" "$(cat "$E2E_TMP/slapd-small.err")"
  exit 0
fi
small=127.0.0.1:$SLAPD_PORT

dir_run Query "$small"
check_eq "query run ends with exit code 0" 0 "$RUN_RC"
check_eq "bind and query logged with the server's naming context" \
  ">> Created connection to AD: LDAP://$small|>> Querying AD for printers, command:Select name, printShareName FROM 'LDAP://$small/$context' WHERE objectCategory='printQueue'" \
  "$(grep -E '^>> (Created connection|Querying AD)' "$LOG" | tr '\n' '|' | sed 's/|$//')"
check_eq "directory printers logged in result order" \
  ">> AD Printer: laser (\\\\NEW\\laser)|>> AD Printer: color (\\\\OLD\\color)|>> AD Printer: SRV-LaserJet (\\\\NEW\\LaserJet)|>> AD Printer: plot (\\\\OLD\\plot)|>> AD Printer: plot (\\\\NEW\\plot)" \
  "$(grep '^>> AD Printer: ' "$LOG" | tr '\n' '|' | sed 's/|$//')"
check_line "query succeeded" "$LOG" ">> Finished getting list of AD printers, abort status: False"
check_eq "report of a client without network connections" "
$header
Local Printer: E2E Laser
Default Printer:E2E Laser

* ----- AD Printers ----- *
laser (\\\\NEW\\laser)
color (\\\\OLD\\color)
SRV-LaserJet (\\\\NEW\\LaserJet)
plot (\\\\OLD\\plot)
plot (\\\\NEW\\plot)

* ----- Migrating Printers using AD ----- *

* ----- Maintenance Prune All Orphaned Active Directory Printers ----- *" "$(cat "$OUT")"

# The simulated client in its ldap form reads the same server the same way.
if [ -x "$zandolin_sim" ]; then
  client="$E2E_TMP/directory-sim"
  rm -rf "$client"
  mkdir -p "$client/files/C/Deploy"
  cat >"$client/machine.json" <<JSON
{ "printers": [ { "name": "\\\\\\\\OLD\\\\laser", "serverName": "\\\\\\\\OLD", "shareName": "laser" } ],
  "printServers": { "NEW": { "queues": ["laser"] } },
  "directory": { "domain": "$small", "ldap": "ldap://$small" } }
JSON
  INI_UseActiveDirectory=True INI_AlwaysRun=True INI_DomainName="$small" \
    e2e_ini "$client/files/C/Deploy/directory.ini"
  "$zandolin_sim" "$client" --json >"$E2E_TMP/directory-sim.json" 2>"$E2E_TMP/directory-sim.err"
  python3 -c 'import json, sys; print(json.load(open(sys.argv[1]))["outcomeText"].replace("\r", ""))' \
    "$E2E_TMP/directory-sim.json" >"$E2E_TMP/directory-sim.report"
  check_eq "the simulated client lists the same directory printers" \
    "$(ad_section "$OUT")" "$(ad_section "$E2E_TMP/directory-sim.report")"
  check_eq "the simulated client moves its connection to the published server" \
    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser" \
    "$(grep '^Migrating: ' "$E2E_TMP/directory-sim.report")"
else
  e2e_fail "the simulated client reads the same server" "no zandolin-sim beside $E2E_DEBUG"
fi

# --- the capture of the directory ----------------------------------------------------------

# capture_dir NAME DOMAIN: a deployment folder whose INI file asks the
# directory of DOMAIN, and zandolin-capture run in it and rehearsed.
capture_dir() {
  e2e_deploy "Capture$1"
  INI_UseActiveDirectory=True INI_AlwaysRun=True INI_DomainName="$2" \
    INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\DirectoryOut' INI_FileOutputName="Capture$1.txt" \
    e2e_ini "$DEPLOY_DIR/directory.ini"
  e2e_capture --ini "$DEPLOY\\directory.ini"
  check_eq "capture $1: exit status 0" 0 "$CAPTURE_RC"
  e2e_rehearse "$CAPTURED"
}

# same_as_engine NAME: the engine run in the deployment folder of the last
# capture_dir, against the rehearsal.
same_as_engine() {
  rm -f "$out_dir/Capture$1.txt"
  e2e_run
  e2e_same_run "capture $1" "$out_dir/Capture$1.txt" "$(e2e_debug_log)"
}

capture_dir Query "$small"
check_eq "capture Query: the query's answer kept inline, uncut" \
  "{\"domain\": \"$small\", \"namingContext\": \"$context\", \"printQueues\": [{\"name\": \"NEW-laser\", \"printShareName\": [\"laser\"]}, {\"name\": \"OLD-color\", \"printShareName\": [\"color\"]}, {\"name\": \"NEW-SRV-LaserJet\", \"printShareName\": [\"LaserJet\"]}, {\"name\": \"OLD-plot\", \"printShareName\": [\"plot\"]}, {\"name\": \"NEW-plot\", \"printShareName\": [\"plot\"]}], \"queryError\": null, \"sizeLimit\": 0}" \
  "$(e2e_json "$CAPTURED/machine.json" 'm["directory"]')"
check_eq "capture Query: the servers the directory names are asked" '["NEW", "OLD"]' \
  "$(e2e_json "$CAPTURED/machine.json" 'sorted(m["printServers"])')"
same_as_engine Query

# --- the server's size limit --------------------------------------------------------------

many=()
for i in $(seq 1 1300); do many+=("NEW-q$i:q$i"); done
queues_ldif "$E2E_TMP/many.ldif" "${many[@]}"
if start_slapd many "$E2E_TMP/many.ldif"; then
  dir_run Many "127.0.0.1:$SLAPD_PORT"
  check_eq "a directory over the server's limit lists 1000 printers" 1000 \
    "$(grep -c '^>> AD Printer: ' "$LOG")"
  check_line "the cut is no failure" "$LOG" ">> Finished getting list of AD printers, abort status: False"
else
  e2e_fail "second directory server starts" "$(cat "$E2E_TMP/slapd-many.err")"
fi

# --- failures ---------------------------------------------------------------------------

down="127.0.0.1:$(free_port)"
dir_run Down "$down"
check_eq "no server: the bind fails and the run aborts" \
  "ERROR: Accessing Active Directory. <<|ERROR: -2147016646|ERROR DESCRIPTION: The server is not operational." \
  "$(grep -A2 -F 'ERROR: Accessing Active Directory.' "$LOG" | tr '\n' '|' | sed 's/|$//')"
check_eq "no server: the report" "
$header
Local Printer: E2E Laser
Default Printer:E2E Laser
Error accessing Active Directory. Try installing an MDAC update.
> Error Number: -2147016646
> Error Description: The server is not operational." "$(cat "$OUT")"

capture_dir Down "$down"
check_eq "capture Down: no directory kept, and why" \
  "[false, [\"The directory LDAP://$down could not be reached (-2147016646, The server is not operational.); the rehearsal meets the same failure.\"]]" \
  "$(e2e_json "$CAPTURED/machine.json" '["directory" in m, m["capture"]["notes"]]')"
same_as_engine Down

dir_run Empty ""
check_line "empty domain: the bind fails" "$LOG" "ERROR: Accessing Active Directory. <<"
check_line "empty domain: reported" "$OUT" "Error accessing Active Directory. Try installing an MDAC update."

dir_run NoContext "$small/DC=other,DC=com"
check_eq "an object that does not exist: the bind fails with the server's answer" \
  "ERROR: -2147016656|ERROR DESCRIPTION: There is no such object on the server." \
  "$(grep -A2 -F 'ERROR: Accessing Active Directory.' "$LOG" | tail -n 2 | tr '\n' '|' | sed 's/|$//')"

start_relay "${small#*:}"
if [ -n "$RELAY_PORT" ]; then
  dir_run Dropped "127.0.0.1:$RELAY_PORT"
  check_eq "connection dropped at the query: the query fails" \
    "ERROR: Quering Active Directory printers. <<|ERROR: -2147016646|ERROR DESCRIPTION: The server is not operational." \
    "$(grep -A2 -F 'ERROR: Quering Active Directory printers.' "$LOG" | tr '\n' '|' | sed 's/|$//')"
  check_eq "connection dropped at the query: the report" "
$header
Local Printer: E2E Laser
Default Printer:E2E Laser
Error quering Active Directory printers.
> Error Number: -2147016646
> Error Description: The server is not operational." "$(cat "$OUT")"
  capture_dir Dropped "127.0.0.1:$RELAY_PORT"
  check_eq "capture Dropped: the refusal of the query kept" \
    '{"description": "The server is not operational.", "number": -2147016646}' \
    "$(e2e_json "$CAPTURED/machine.json" 'm["directory"]["queryError"]')"
  same_as_engine Dropped
else
  e2e_fail "relay starts" "no port"
fi

# The scripts after this one expect a prefix without this printer.
e2e_remove_printers "E2E Laser"
