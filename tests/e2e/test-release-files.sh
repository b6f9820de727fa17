#!/usr/bin/env bash
# The files shipped beside the engine: the event message file renders the
# engine's entries as an event viewer shows them, and zandolin-debug.exe
# answers --version and --help.
#
# The message files checked are those of E2E_MESSAGE_FILES (Linux paths,
# separated by blanks), by default the EvntMsg.dll beside the engine. The
# checker is 64-bit and loads each file as data, as an event viewer does, so
# a 32-bit EvntMsg.dll is checked too.
source "$(dirname "$0")/lib.sh"
here=$(cd "$(dirname "$0")" && pwd)
bin=$(dirname "$E2E_EXE")

checker="$E2E_TMP/message-check.exe"
if ! x86_64-w64-mingw32-g++ -O2 -static -o "$checker" "$here/message-check.cpp" \
  2>"$E2E_TMP/message-check.build"; then
  e2e_fail "the message checker builds" "$(cat "$E2E_TMP/message-check.build")"
  exit 0
fi

CRLF=$'\r\n'
# A run's report as the engine writes it: every line behind a CR LF.
report="${CRLF}* ----- Computer: $E2E_COMPUTERNAME Username: $E2E_USER Printers ----- *"
report+="${CRLF}Found networked printer: \\\\OLD\\laser"
report+="${CRLF}Migrating: \\\\OLD\\laser to \\\\NEW\\laser"
report+="${CRLF}Added networked printer: \\\\NEW\\laser"
report+="${CRLF}100% done, %1 and %%2 stay as they are"
debug_failure="Unable to create debug file within folder: 75: Path/File access error"
# The longest insertion string Windows takes.
longest=$(printf 'Migrating: \\\\OLD\\queue%06d to \\\\NEW\\queue%06d\r\n' $(seq 1 1000 | sed 'p') |
  head -c 31839)
check_eq "the longest report of the checks has 31839 characters" 31839 "${#longest}"

# render DLL ID TEXT [LANGID [LOCALE]]: what FormatMessageA makes of message
# ID of DLL with TEXT as the insertion string, in a process of the locale
# (default the run's); sets RENDERED and RENDER_ERR.
render() {
  printf '%s' "$3" >"$E2E_TMP/insertion.txt"
  rm -f "$E2E_TMP/rendered.txt"
  (cd "$E2E_TMP" && LC_ALL=${5:-$LC_ALL} wine "$checker" "$(winepath -w "$1" 2>/dev/null)" "$2" \
    insertion.txt rendered.txt ${4:-} 2>"$E2E_TMP/render.err")
  RENDERED=$(cat "$E2E_TMP/rendered.txt" 2>/dev/null; printf x)
  RENDERED=${RENDERED%x}
  RENDER_ERR=$(tr -d '\r' <"$E2E_TMP/render.err")
}

for dll in ${E2E_MESSAGE_FILES:-$bin/EvntMsg.dll}; do
  what="$(basename "$(dirname "$dll")")/EvntMsg.dll"
  if [ ! -f "$dll" ]; then
    e2e_fail "$what is there" "missing file $dll"
    continue
  fi
  render "$dll" 20001 "$report"
  check_eq "$what: event 20001 shows the run's report exactly" "$report" "$RENDERED"
  render "$dll" 20002 "$debug_failure"
  check_eq "$what: event 20002 shows the debug file failure exactly" "$debug_failure" "$RENDERED"
  render "$dll" 20001 "$longest"
  check_eq "$what: a report of 31839 characters comes through whole" "$longest" "$RENDERED"
  # One language serves every Windows: asked for no particular language on a
  # German system, FormatMessage falls back to English (United States).
  render "$dll" 20001 "$report" 0 de_DE.UTF-8
  check_eq "$what: on a German system, found with no language asked for" "$report" "$RENDERED"
  render "$dll" 20001 "$report" 0x407 de_DE.UTF-8
  check_eq "$what: no German message (ERROR_RESOURCE_LANG_NOT_FOUND)" \
    "FormatMessageA failed: 1815" "$RENDER_ERR"
  # The entries carry the plain identifiers: with severity bits (Informational)
  # the message is not in the table.
  render "$dll" 0x40004E21 "$report"
  check_eq "$what: no message 0x40004E21, only the plain identifier (ERROR_MR_MID_NOT_FOUND)" \
    "FormatMessageA failed: 317" "$RENDER_ERR"
  render "$dll" 20003 "$report"
  check_eq "$what: no message 20003" "FormatMessageA failed: 317" "$RENDER_ERR"
done

# --- zandolin-debug.exe --------------------------------------------------------

debug_exe="$bin/zandolin-debug.exe"
version=$(sed -n 's/^project(ZandolinEngine VERSION \([0-9.]*\).*/\1/p' "$here/../../CMakeLists.txt")
out=$(cd "$E2E_TMP" && wine "$(winepath -w "$debug_exe" 2>/dev/null)" --version 2>&1)
rc=$?
check_eq "zandolin-debug.exe --version prints the project's version" \
  "zandolin-debug $version (exit 0)" "$(tr -d '\r' <<<"$out") (exit $rc)"
out=$(cd "$E2E_TMP" && wine "$(winepath -w "$debug_exe" 2>/dev/null)" --help 2>&1)
rc=$?
check_eq "zandolin-debug.exe --help prints the usage first, exit 0" \
  "usage: zandolin-debug [--whole | --end BYTES] FILE (exit 0)" "$(tr -d '\r' <<<"$out" | head -n 1) (exit $rc)"
