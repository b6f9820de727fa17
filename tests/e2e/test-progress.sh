#!/usr/bin/env bash
# The progress window on Windows: made on a virtual X display, its caption,
# its client area at 96 dpi, centred on the screen, shown during the run and
# gone at its end; and a run asking for it where no window can be made.
source "$(dirname "$0")/lib.sh"

e2e_version win10
e2e_printers "E2E Laser" "E2E Laser:LPT1:"

# --- no display: the window cannot be made, the run goes on --------------------

e2e_deploy ProgressHeadless
INI_ShowProgress=True INI_UseFileOutput=True INI_FileOutputPath='C:\E2E\ProgressHeadless' \
  INI_FileOutputName=report.txt e2e_ini "$DEPLOY_DIR/progress.ini"
e2e_run
log=$(e2e_debug_log)
check_eq "without a display the run ends with exit code 0" 0 "$RUN_RC"
check_line "without a display the run goes on" "$log" \
  ">> Finished notification, abort status: False"
check_eq "without a display the report is written" \
  "Local Printer: E2E Laser|Default Printer:E2E Laser" \
  "$(tail -n 2 "$(e2e_plain "$DEPLOY_DIR/report.txt")" | tr '\n' '|' | sed 's/|$//')"

# --- on a virtual display --------------------------------------------------------

for tool in xvfb-run xdotool xwininfo; do
  if ! command -v "$tool" >/dev/null; then
    e2e_fail "progress window on a virtual display" "$tool is not installed"
    exit 0
  fi
done

e2e_deploy Progress
INI_ShowProgress=True e2e_ini "$DEPLOY_DIR/progress.ini"
watch="$E2E_TMP/progress.watch"
# Runs the engine on the display and records, every 50 ms, the engine's
# window as X sees it: caption, position, size and map state.
cat >"$E2E_TMP/progress-watch.sh" <<'EOF'
#!/usr/bin/env bash
cd "$E2E_TMP"
wine "$DEPLOY\\ZandolinEngine.exe" >/dev/null 2>&1 &
engine=$!
while kill -0 "$engine" 2>/dev/null; do
  for w in $(xdotool search --name 'Zandolin' 2>/dev/null); do
    info=$(xwininfo -id "$w" 2>/dev/null) || continue
    name=$(xdotool getwindowname "$w" 2>/dev/null)
    [ -n "$name" ] || continue   # gone between the search and the look
    printf '%s|%s|%s|%s|%s|%s\n' "$name" \
      "$(sed -n 's/.*Absolute upper-left X: *//p' <<<"$info")" \
      "$(sed -n 's/.*Absolute upper-left Y: *//p' <<<"$info")" \
      "$(sed -n 's/^ *Width: *//p' <<<"$info")" \
      "$(sed -n 's/^ *Height: *//p' <<<"$info")" \
      "$(sed -n 's/.*Map State: *//p' <<<"$info")"
  done
  sleep 0.05
done
wait "$engine"
echo "exit $?"
echo "left: $(xdotool search --name 'Zandolin' 2>/dev/null | wc -l)"
EOF
# The prefix's desktop was made without a display: start its server afresh
# for the display, and again without it afterwards.
restart_server() {
  wineserver -k >/dev/null 2>&1
  wineserver -w >/dev/null 2>&1
  wineserver -p >/dev/null 2>&1
}
rm -f "$DEPLOY_DIR/$E2E_COMPUTERNAME.debug"
restart_server
E2E_TMP=$E2E_TMP DEPLOY=$DEPLOY timeout 120 xvfb-run -a -s '-screen 0 1280x1024x24 -dpi 96' \
  bash "$E2E_TMP/progress-watch.sh" >"$watch" 2>/dev/null
restart_server
log=$(e2e_debug_log)

check_eq "with a display the run ends with exit code 0" "exit 0" "$(grep '^exit ' "$watch")"
check_line "with a display the run goes on" "$log" ">> Finished notification, abort status: False"
captions=$(grep -v '^exit \|^left: ' "$watch" | cut -d'|' -f1 | sort -u)
check_eq "one window, captioned as the form" "Zandolin Engine Progress ..." "$captions"
# Without a window manager X may also show Wine's outer window, frame
# included, under the same name: the client area must be among the sizes.
sizes=$(grep '^Zandolin' "$watch" | cut -d'|' -f4,5 | sort -u | tr '|' 'x' | tr '\n' ' ')
check_eq "client area of 6645 x 1485 twips at 96 dpi" "443x99" \
  "$(grep -o '443x99' <<<"$sizes" || echo "$sizes")"
viewable=$(grep '|IsViewable$' "$watch" | head -n 1)
check_eq "the window is shown during the run" yes "$([ -n "$viewable" ] && echo yes || echo no)"
if [ -n "$viewable" ]; then
  IFS='|' read -r _ x y w h _ <<<"$viewable"
  check_eq "centred across the screen" 640 $(((2 * x + w + 1) / 2))
  # The caption stands above the client area: its centre is a little low.
  centre=$(((2 * y + h + 1) / 2))
  check_eq "centred down the screen, below its caption" yes \
    "$([ "$centre" -ge 512 ] && [ "$centre" -le 532 ] && echo yes || echo "no, centre at $centre")"
fi
check_eq "the window is gone when the run ends" "left: 0" "$(grep '^left: ' "$watch")"
