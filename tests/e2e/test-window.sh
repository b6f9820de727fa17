#!/usr/bin/env bash
# The progress window as a person sees it: Wine in virtual-desktop mode
# (800 x 600) on a virtual X screen, a run with the window, an e-mail sent
# while it is up, the pop-up closed by a key press, and pictures of the
# screen while the pop-up is up and during the last two seconds of the run,
# kept as PNG files (E2E_OUT) for a person to look at. A probe, a Windows
# program of its own, reads the windows from outside: their styles, sizes
# and places, the label's texts and the bar while the pop-up is up.
source "$(dirname "$0")/lib.sh"

here=$(cd "$(dirname "$0")" && pwd)
out=${E2E_OUT:-$E2E_TMP/pictures}
mkdir -p "$out"

for tool in xvfb-run xdotool /usr/bin/import /usr/bin/convert x86_64-w64-mingw32-g++; do
  if ! command -v "$tool" >/dev/null; then
    e2e_fail "progress window on a virtual desktop" "$tool is not installed"
    exit 0
  fi
done
if ! /usr/bin/python3 -c 'import aiosmtpd' 2>/dev/null; then
  e2e_fail "progress window on a virtual desktop" "Debian's python3-aiosmtpd is not installed"
  exit 0
fi

probe_exe="$E2E_TMP/window-probe.exe"
if ! x86_64-w64-mingw32-g++ -O2 -static -o "$probe_exe" "$here/window-probe.cpp" -lcomctl32 \
  2>"$E2E_TMP/window-probe.build"; then
  e2e_fail "the window probe builds" "$(cat "$E2E_TMP/window-probe.build")"
  exit 0
fi

# --- the run ---------------------------------------------------------------------------

e2e_version win10
mail_dir="$E2E_TMP/smtp-desktop"
mkdir -p "$mail_dir"
/usr/bin/python3 "$here/smtp-server.py" "$mail_dir" >"$mail_dir/server.log" 2>&1 &
server=$!
for i in $(seq 1 100); do [ -f "$mail_dir/port" ] && break; sleep 0.05; done

e2e_deploy Desktop
mkdir -p "$DEPLOY_DIR/flags"
cp "$probe_exe" "$DEPLOY_DIR/window-probe.exe"
INI_ShowProgress=True INI_UseSMTP=True INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\Desktop' \
  INI_FileOutputName=report.txt INI_WriteToEventLog=True INI_UseClientPopup=True \
  INI_UseSuccessClientPopup=True \
  INI_SuccessMessage='Your printers have moved.^CRLFNothing else to do.^CRLFThank you.' \
  e2e_ini "$DEPLOY_DIR/desktop.ini"
sed -i "s/^UseSMTP=.*\r\$/&\nSMTPServerNameOrIP=127.0.0.1\r\nServerPort=$(cat "$mail_dir/port")\r\nEmailSubject=Desktop\r\nEmailTo=admin@corp.example.com\r\nEmailFrom=zandolin@corp.example.com\r/" \
  "$DEPLOY_DIR/desktop.ini"

wine reg add 'HKCU\Software\Wine\Explorer' /v Desktop /d Default /f >/dev/null 2>&1
wine reg add 'HKCU\Software\Wine\Explorer\Desktops' /v Default /d 800x600 /f >/dev/null 2>&1
# Wine's own fonts (Debian's fonts-wine), where this Wine looks first, so that
# the pictures show captions and caption buttons as Windows draws them.
for font in marlett.ttf tahoma.ttf tahomabd.ttf; do
  [ -f "/usr/share/wine/fonts/$font" ] && cp "/usr/share/wine/fonts/$font" "$WINEPREFIX/drive_c/windows/Fonts/"
done

# On the display: the probe, then the engine; the pop-up is photographed and
# closed, the finished window photographed in the engine's last sleep.
cat >"$E2E_TMP/desktop-run.sh" <<'EOF'
#!/usr/bin/env bash
flags="$DEPLOY_DIR/flags"
wait_flag() {
  local i
  for i in $(seq 1 1500); do [ -e "$flags/$1" ] && return 0; sleep 0.02; done
  return 1
}
cd "$E2E_TMP"
wine "$DEPLOY\\window-probe.exe" "$DEPLOY\\flags" 90 >"$E2E_TMP/desktop.probe.raw" 2>/dev/null &
probe=$!
wine "$DEPLOY\\ZandolinEngine.exe" >/dev/null 2>&1 &
engine=$!
if wait_flag box; then
  sleep 0.3
  /usr/bin/import -window root "$OUT/progress-popup.png"
  start=$(date +%s%N)
  xdotool key Return
  echo "key $(( ($(date +%s%N) - start) / 1000000 ))"
fi
if wait_flag finished; then
  sleep 0.5
  /usr/bin/import -window root "$OUT/progress-finished.png"
fi
wait "$engine"
echo "exit $?"
wait "$probe"
EOF
restart_server() {
  wineserver -k >/dev/null 2>&1
  wineserver -w >/dev/null 2>&1
  wineserver -p >/dev/null 2>&1
}
rm -f "$out/progress-popup.png" "$out/progress-finished.png"
restart_server
E2E_TMP=$E2E_TMP DEPLOY=$DEPLOY DEPLOY_DIR=$DEPLOY_DIR OUT=$out timeout 150 \
  xvfb-run -a -s '-screen 0 800x600x24 -dpi 96' bash "$E2E_TMP/desktop-run.sh" \
  >"$E2E_TMP/desktop.run" 2>/dev/null
wine reg delete 'HKCU\Software\Wine\Explorer' /v Desktop /f >/dev/null 2>&1
restart_server
kill "$server" 2>/dev/null
wait "$server" 2>/dev/null

probe="$E2E_TMP/desktop.probe"
tr -d '\r' <"$probe.raw" >"$probe" 2>/dev/null
field() { sed -n "s/^$1 //p" "$probe" | head -n 1; }

# --- what the probe saw ------------------------------------------------------------------

check_eq "the run ends with exit code 0" "exit 0" "$(grep '^exit ' "$E2E_TMP/desktop.run")"
check_eq "the virtual desktop is 800 x 600" "800 600" "$(field screen)"
check_eq "caption, fixed single border, no minimise or maximise box" \
  "Zandolin Engine Progress ...|caption sysmenu" "$(field window)"
read -r cl ct cw ch <<<"$(field client)"
read -r fl ft fw fh <<<"$(field frame)"
check_eq "client area of 6645 x 1485 twips at 96 dpi" "443 99" "$cw $ch"
check_eq "centred on the screen" "$(((800 - fw) / 2)) $(((600 - fh) / 2))" "$fl $ft"
check_eq "the label at 120, 120, 6375 x 735 twips" "Static 8 8 425 49" \
  "$(grep '^child Static ' "$probe" | cut -d' ' -f2-)"
check_eq "the bar at 120, 960, 6375 x 375 twips" "msctls_progress32 8 64 425 25" \
  "$(grep '^child msctls_progress32 ' "$probe" | cut -d' ' -f2-)"
check_eq "the pop-up shows the message in three lines" \
  'Your printers have moved.\nNothing else to do.\nThank you.' "$(field box)"
check_eq "the pop-up is closed by a key press" "box closed" "$(grep -x 'box closed' "$probe")"
check_eq "the label before the pop-up is the output file's" "Saving migration file ..." \
  "$(grep '^label \|^box ' "$probe" | grep -B1 '^box ' | head -n 1 | sed 's/^label //')"
# Each statement moves the bar one step: the start sets 1, then four steps of
# the inventory and the default printer, one a printer found, the status,
# the notification, the e-mail and the output file.
printers=$(grep -c '^Local Printer: ' "$DEPLOY_DIR/report.txt" 2>/dev/null)
check_eq "the bar stands where the engine put it while the pop-up is up" \
  "0 100 $((1 + 4 + printers + 4))" "$(field bar)"
check_eq "the last statement is the finish, and then the window goes" \
  "Zandolin finished ...|gone" \
  "$(grep '^label \|^gone' "$probe" | tail -n 2 | sed 's/^label //' | tr '\n' '|' | sed 's/|$//')"
check_eq "the e-mail was sent while the window was up" 1 "$(ls "$mail_dir" | grep -c '\.data$')"
log=$(e2e_debug_log)
check_line "the e-mail's dialogue ran inside the dispatch" "$log" ">> Sending QUIT <<"

# --- the pictures ------------------------------------------------------------------------

pixel() { /usr/bin/convert "$1" -format "%[pixel:p{$2,$3}]" info:- 2>/dev/null; }
for picture in progress-popup progress-finished; do
  check_file "picture $picture.png taken" "$out/$picture.png"
done
echo "      pictures for a person to look at: $out/progress-popup.png $out/progress-finished.png"
if [ -f "$out/progress-finished.png" ] && [ -n "$cl" ]; then
  # The bar's inside, near its left and its right end, and the window's face.
  y=$((ct + 64 + 12))
  left=$(pixel "$out/progress-finished.png" $((cl + 8 + 6)) $y)
  right=$(pixel "$out/progress-finished.png" $((cl + 8 + 425 - 6)) $y)
  face=$(pixel "$out/progress-finished.png" $((cl + 4)) $((ct + 60)))
  check_eq "finished picture: the bar is full to its right end" "$left" "$right"
  check_eq "finished picture: the bar's colour is not the window's" yes \
    "$([ -n "$left" ] && [ "$left" != "$face" ] && echo yes || echo "no: $left")"
  popup_right=$(pixel "$out/progress-popup.png" $((cl + 8 + 425 - 6)) $y)
  check_eq "pop-up picture: the bar is not yet full" yes \
    "$([ -n "$popup_right" ] && [ "$popup_right" != "$left" ] && echo yes || echo "no: $popup_right")"
fi
