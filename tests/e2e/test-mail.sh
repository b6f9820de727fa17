#!/usr/bin/env bash
# The report on Windows through the channels that leave the computer: the
# e-mail to a real SMTP server on loopback (Debian's aiosmtpd), the output
# file on a Windows path and the event log entry, with the progress window
# off (the session runs on after Main) and on (the dispatch waits for it);
# a server that refuses a step (the back-up file beside the executable); and
# sessions that cannot end (nothing listens, a server that says nothing, a
# port that is no number), which leave the process waiting without keeping a
# core busy.
source "$(dirname "$0")/lib.sh"

CRLF=$'\r\n'
here=$(cd "$(dirname "$0")" && pwd)

if ! /usr/bin/python3 -c 'import aiosmtpd' 2>/dev/null; then
  e2e_fail "SMTP server" "Debian's python3-aiosmtpd is not installed"
  exit 0
fi

# --- helpers ----------------------------------------------------------------------

SERVER_PIDS=()
stop_servers() {
  local pid
  for pid in "${SERVER_PIDS[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
  SERVER_PIDS=()
}
trap stop_servers EXIT

# start_server NAME [--refuse COMMAND]: an SMTP server recording into
# $E2E_TMP/smtp-NAME; sets MAIL_DIR and MAIL_PORT.
start_server() {
  MAIL_DIR="$E2E_TMP/smtp-$1"
  shift
  rm -rf "$MAIL_DIR"
  mkdir -p "$MAIL_DIR"
  /usr/bin/python3 "$here/smtp-server.py" "$MAIL_DIR" "$@" >"$MAIL_DIR/server.log" 2>&1 &
  SERVER_PIDS+=($!)
  local i
  for i in $(seq 1 100); do
    [ -f "$MAIL_DIR/port" ] && break
    sleep 0.05
  done
  MAIL_PORT=$(cat "$MAIL_DIR/port" 2>/dev/null)
}

# mail_ini FILE: e2e_ini, and the keys of the SMTP server from the MAIL_*
# variables.
mail_ini() {
  e2e_ini "$1"
  local keys="SMTPServerNameOrIP=${MAIL_Server:-}\r\nServerPort=${MAIL_ServerPort:-}\r\n"
  keys+="EmailSubject=${MAIL_Subject:-}\r\nEmailTo=${MAIL_To:-}\r\nEmailFrom=${MAIL_From:-}\r"
  sed -i "s/^UseSMTP=.*\r\$/&\n$keys/" "$1"
}

# A file's bytes, made visible for a comparison.
bytes() { [ -f "$1" ] && od -An -c -w1000000 "$1" | sed 's/^ *//'; }

# The message head the engine sends before the report.
message_head() {
  printf '%s' "From: <zandolin@corp.example.com>${CRLF}To: admin@corp.example.com${CRLF}"
  printf '%s' "Subject: Computer ($E2E_COMPUTERNAME-$E2E_USER) Printer migration${CRLF}"
  printf '%s' "X-Mailer: Zandolin${CRLF}Mime-Version: 1.0${CRLF}"
  printf '%s' "Content-Type: text/charset=us-ascii${CRLF}${CRLF}"
}

# check_event NAME FILE: the run's event log entry, as Wine's standard error
# shows it, carries the text of FILE: as its one string (Wine shows the first
# few hundred characters and "..." for the rest) and, with its NUL, as its
# data (whose size it shows).
check_event() {
  local text escaped shown size
  text=$(cat "$2"; echo x)
  text=${text%x}
  escaped=${text//\\/\\\\}
  escaped=${escaped//$'\r'/\\r}
  escaped=${escaped//$'\n'/\\n}
  shown=$(sed -n 's/^[0-9a-f]*:trace:eventlog:ReportEventW //p' "$RUN_ERR")
  if [[ "$shown" == *'"...' ]]; then
    shown=${shown%'"...'}
    shown=${shown#L\"}
    check_eq "$1 (string, as far as shown)" "${escaped:0:${#shown}}" "$shown"
  else
    check_eq "$1 (string)" "L\"$escaped\"" "$shown"
  fi
  size=$(sed -n 's/^[0-9a-f]*:fixme:advapi:ReportEventA ([0-9A-F]*,//p' "$RUN_ERR" | cut -d, -f6)
  check_eq "$1 (data size)" "$(printf '0x%08x' $((${#text} + 1)))" "$size"
}

# The bytes of standard input without its last two (a line end).
chop_line_end() { head -c -2; }

MAIL_Server=127.0.0.1
MAIL_Subject="Printer migration"
MAIL_To=admin@corp.example.com
MAIL_From=zandolin@corp.example.com
HOSTNAME_SEEN=$(hostname)

e2e_version win10

# --- the session after Main: progress window off ------------------------------------

start_server plain
e2e_deploy Mail
MAIL_ServerPort=$MAIL_PORT INI_UseSMTP=True INI_UseFileOutput=True \
  INI_FileOutputPath='C:\E2E\Mail' INI_FileOutputName=report.txt INI_WriteToEventLog=True \
  mail_ini "$DEPLOY_DIR/mail.ini"
E2E_WINEDEBUG=+eventlog e2e_run
log=$(e2e_debug_log)
report="$DEPLOY_DIR/report.txt"
check_eq "window off: the run ends by itself with exit code 0" 0 "$RUN_RC"
check_line "window off: the session is started in the dispatch" "$log" \
  ">> Sending nofication via STMP, server (port): 127.0.0.1($MAIL_PORT)"
check_no_line "window off: the session's lines come after the debug file was saved" "$log" \
  ">> Connected to SMTP Server << "
check_eq "window off: one message delivered" "1.data" "$(cd "$MAIL_DIR" && ls -- *.data)"
check_eq "HELO names the local host as the socket layer knows it" "$HOSTNAME_SEEN" \
  "$(cat "$MAIL_DIR/1.helo" 2>/dev/null)"
check_eq "MAIL FROM is EmailFrom" "zandolin@corp.example.com" "$(cat "$MAIL_DIR/1.from" 2>/dev/null)"
check_eq "RCPT TO is the one address of EmailTo" "admin@corp.example.com" \
  "$(cat "$MAIL_DIR/1.to" 2>/dev/null)"
check_eq "the output file opens with two line ends, the Report At head and two line ends" \
  "|||Report At: <general date>||" \
  "$(head -n 4 "$report" 2>/dev/null | tr -d '\r' | sed -E \
    's#^Report At: [0-9]{1,2}/[0-9]{1,2}/[0-9]{4} [0-9]{1,2}:[0-9]{2}:[0-9]{2} [AP]M$#Report At: <general date>#' |
    sed 's/^/|/' | tr -d '\n')|"
check_eq "the output file's report begins with the printer section" \
  "* ----- Computer: $E2E_COMPUTERNAME Username: $E2E_USER Printers ----- *"$'\r' \
  "$(sed -n 6p "$report" 2>/dev/null)"
# The session ran after the dispatch: its message carries the head that the
# output file put in front of the report.
check_eq "window off: the message is the head and the report with the output file's head" \
  "$( (message_head; cat "$report") | od -An -c -w1000000 | sed 's/^ *//')" \
  "$(bytes "$MAIL_DIR/1.data")"
chop_line_end <"$report" >"$E2E_TMP/mail.expected"
check_event "the event log entry carries the report with its head" "$E2E_TMP/mail.expected"

# A second run appends its report to the same output file.
first_size=$(stat -c %s "$report")
first=$(cat "$report")
sleep 1
E2E_WINEDEBUG=+eventlog e2e_run
check_eq "a second run keeps the first report in front" "$first" \
  "$(head -c "$first_size" "$report")"
tail -c +$((first_size + 1)) "$report" | chop_line_end >"$E2E_TMP/mail.expected"
check_event "a second run appends a report of its own, the one it logged" \
  "$E2E_TMP/mail.expected"
check_eq "a second run sends a second message" "1.data 2.data" \
  "$(cd "$MAIL_DIR" && ls -- *.data | tr '\n' ' ' | sed 's/ $//')"
stop_servers

# --- the session inside the dispatch: progress window on, no display -----------------

start_server window
e2e_deploy MailWindow
MAIL_ServerPort=$MAIL_PORT INI_ShowProgress=True INI_UseSMTP=True INI_UseFileOutput=True \
  INI_FileOutputPath='C:\E2E\MailWindow' INI_FileOutputName=report.txt INI_WriteToEventLog=True \
  mail_ini "$DEPLOY_DIR/mail.ini"
E2E_WINEDEBUG=+eventlog e2e_run
log=$(e2e_debug_log)
report="$DEPLOY_DIR/report.txt"
check_eq "window on: the run ends with exit code 0" 0 "$RUN_RC"
check_eq "window on: the dialogue stands in the debug file, in order" \
  ">> Sending nofication via STMP, server (port): 127.0.0.1($MAIL_PORT)|>> Connected to SMTP Server << |>> Sending HELLO: HELO $HOSTNAME_SEEN|>> Sending FROM list: MAIL FROM:<zandolin@corp.example.com>|>> Sending TO list: RCPT TO:<admin@corp.example.com>|>> Sending DATA start <<|>> Sending DATA: From: <zandolin@corp.example.com>|>> Sending QUIT <<" \
  "$(grep -E '^>> (Sending|Connected)' "$log" | tr '\n' '|' | sed 's/|$//')"
check_line "window on: the debug line of the message has the plain subject" "$log" \
  "Subject: Printer migration"
check_no_line "window on: no failure of the session" "$log" "ERROR: Sending SMTP email <<"
# The dispatch waited for the session: the message went before the output
# file's head was put in front of the report.
check_eq "window on: the message is the head and the report without the output file's head" \
  "$( (message_head; tail -n +5 "$report") | od -An -c -w1000000 | sed 's/^ *//')" \
  "$(bytes "$MAIL_DIR/1.data")"
chop_line_end <"$report" >"$E2E_TMP/mail.expected"
check_event "window on: the event log entry has the output file's head all the same" \
  "$E2E_TMP/mail.expected"
stop_servers

# --- a server that refuses a step: the back-up file ----------------------------------

start_server refuse --refuse RCPT
e2e_deploy MailRefused
MAIL_ServerPort=$MAIL_PORT INI_ShowProgress=True INI_UseSMTP=True INI_UseFileOutput=True \
  INI_FileOutputPath='C:\E2E\MailRefused' INI_FileOutputName=report.txt mail_ini "$DEPLOY_DIR/mail.ini"
e2e_run
log=$(e2e_debug_log)
report="$DEPLOY_DIR/report.txt"
check_eq "refused: the run ends with exit code 0" 0 "$RUN_RC"
check_eq "refused: the dialogue stops at the refused step" \
  ">> Connected to SMTP Server << |>> Sending HELLO: HELO $HOSTNAME_SEEN|>> Sending FROM list: MAIL FROM:<zandolin@corp.example.com>|>> Sending TO list: RCPT TO:<admin@corp.example.com>" \
  "$(grep -E '^>> (Sending [HFTDQ]|Connected)' "$log" | tr '\n' '|' | sed 's/|$//')"
check_eq "refused: the three error lines, with no error number" \
  "ERROR: Sending SMTP email <<|ERROR: 0|ERROR DESCRIPTION: " \
  "$(grep -A2 -Fx 'ERROR: Sending SMTP email <<' "$log" | tr '\n' '|' | sed 's/|$//')"
backup_line=$(grep '^>> Writing to back-up file: ' "$log")
backup=${backup_line#>> Writing to back-up file: }
check_eq "refused: the back-up file is named from the computer and the clock" yes \
  "$([[ "$backup" =~ ^C:\\E2E\\MailRefused\\${E2E_COMPUTERNAME}_[0-9]{2}\.[0-9]{2}\.[0-9]{4}_[0-9]{2}\.[0-9]{2}\.[0-9]{2}_EmailFailure\.txt$ ]] &&
    echo yes || echo "no: $backup")"
backups=("$DEPLOY_DIR"/*_EmailFailure.txt)
check_eq "refused: one back-up file beside the executable" 1 \
  "$(ls "$DEPLOY_DIR" | grep -c '_EmailFailure\.txt$')"
# The session ran inside the dispatch, before the output file's head.
check_eq "refused: the back-up file holds the report and a line end" \
  "$(tail -n +5 "$report" | od -An -c -w1000000 | sed 's/^ *//')" "$(bytes "${backups[0]}")"
check_eq "refused: the server got the refused address and no message" \
  "admin@corp.example.com|" "$(cat "$MAIL_DIR/1.to" 2>/dev/null)|$(cd "$MAIL_DIR" && ls -- *.data 2>/dev/null)"
stop_servers

# --- sessions that cannot end ----------------------------------------------------------

# runs the engine for at most $1 seconds; sets RUN_RC and RUN_CPU (the CPU
# seconds the process used, user and system).
run_limited() {
  E2E_RUNS=$((E2E_RUNS + 1))
  RUN_OUT="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.out"
  RUN_ERR="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.err"
  rm -f "$DEPLOY_DIR/$E2E_COMPUTERNAME.debug"
  local times="$E2E_TMP/$E2E_SCRIPT.$E2E_RUNS.time"
  (cd "$E2E_TMP" && /usr/bin/time -f '%U %S' -o "$times" \
    timeout "$1" wine "$DEPLOY\\ZandolinEngine.exe" >"$RUN_OUT" 2>"$RUN_ERR")
  RUN_RC=$?
  RUN_CPU=$(awk '{ printf "%.2f", $1 + $2 }' "$times")
}

# Nothing listens on the port: the Error event comes before Connect, the form
# stays loaded and the process waits for ever after Main.
closed_port=$(/usr/bin/python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
e2e_deploy MailNobody
MAIL_ServerPort=$closed_port INI_UseSMTP=True mail_ini "$DEPLOY_DIR/mail.ini"
run_limited 6
log=$(e2e_debug_log)
check_eq "nothing listens: the process does not end by itself" 124 "$RUN_RC"
check_line "nothing listens: Main has saved the debug file" "$log" \
  ">> Sending nofication via STMP, server (port): 127.0.0.1($closed_port)"
check_eq "nothing listens: the waiting process keeps no core busy (CPU seconds in 6 s)" yes \
  "$(awk -v c="$RUN_CPU" 'BEGIN { print (c < 1.0) ? "yes" : "no: " c }')"

# A server that takes the connection and says nothing: the session waits
# for its greeting (30 ticks, then for ever), and so does the process, idle.
silent="$E2E_TMP/smtp-silent"
mkdir -p "$silent"
/usr/bin/python3 - "$silent" <<'PY' &
import os, socket, sys, time
folder = sys.argv[1]
server = socket.socket()
server.bind(("127.0.0.1", 0))
server.listen(1)
with open(os.path.join(folder, "port.tmp"), "w") as f:
    f.write(str(server.getsockname()[1]))
os.replace(os.path.join(folder, "port.tmp"), os.path.join(folder, "port"))
server.settimeout(30)
client, _ = server.accept()
open(os.path.join(folder, "connected"), "w").close()
time.sleep(30)
PY
SERVER_PIDS+=($!)
for i in $(seq 1 100); do [ -f "$silent/port" ] && break; sleep 0.05; done
e2e_deploy MailSilent
MAIL_ServerPort=$(cat "$silent/port") INI_UseSMTP=True mail_ini "$DEPLOY_DIR/mail.ini"
run_limited 6
check_eq "silent server: the process waits for the greeting" "124|connected" \
  "$RUN_RC|$(ls "$silent" | grep -x connected)"
check_eq "silent server: the waiting session keeps no core busy (CPU seconds in 6 s)" yes \
  "$(awk -v c="$RUN_CPU" 'BEGIN { print (c < 1.0) ? "yes" : "no: " c }')"
stop_servers

# A port that is no number goes to the socket as it stands and fails there,
# the same way.
e2e_deploy MailNoPort
MAIL_ServerPort=smtp INI_UseSMTP=True mail_ini "$DEPLOY_DIR/mail.ini"
run_limited 6
log=$(e2e_debug_log)
check_eq "port that is no number: the process does not end by itself" 124 "$RUN_RC"
check_line "port that is no number: handed to the socket as it stands" "$log" \
  ">> Sending nofication via STMP, server (port): 127.0.0.1(smtp)"
check_eq "port that is no number: the waiting process keeps no core busy (CPU seconds in 6 s)" \
  yes "$(awk -v c="$RUN_CPU" 'BEGIN { print (c < 1.0) ? "yes" : "no: " c }')"
