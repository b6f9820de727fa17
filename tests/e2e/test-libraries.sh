#!/usr/bin/env bash
# The libraries a run loads, as Wine's loaddll channel reports them: a run
# that takes the already-succeeded path with no window and no pop-up loads
# neither the spooler nor the window or graphics libraries, on each
# generation's status store; a run that needs them loads them; a DLL named as
# a system library beside the engine is never loaded.
source "$(dirname "$0")/lib.sh"
here=$(cd "$(dirname "$0")" && pwd)

# The files of the DLLs the engine's process loaded in the last run, one a
# line, lower case, with their folders. The engine has one thread: the lines
# of other processes (Wine's own, started meanwhile) carry other thread
# numbers.
loaded_files() {
  local thread
  thread=$(sed -n 's/^\([0-9a-f]*\):trace:loaddll:.*Loaded L".*\\ZandolinEngine\.exe".*/\1/p' \
    "$RUN_ERR" | head -n 1)
  [ -n "$thread" ] || return
  sed -n "s/^$thread:trace:loaddll:[a-z_]* Loaded L\"\\(.*\\)\" at .*/\\1/p" "$RUN_ERR" |
    sed 's/\\\\/\\/g' | tr 'A-Z' 'a-z'
}

# The same DLLs without their folders.
loaded_dlls() { loaded_files | sed 's/.*\\//'; }

# check_loads NAME DLL: the last run loaded the DLL.
check_loads() {
  if loaded_dlls | grep -Fxq "$2"; then
    e2e_pass "$1"
  else
    e2e_fail "$1" "$2 is not among the DLLs loaded: $(echo $(loaded_dlls))"
  fi
}

# check_loads_none NAME: the last run loaded none of the three libraries
# (and the channel did report the engine's own loading).
check_loads_none() {
  local found
  found=$(loaded_dlls | grep -Ex 'winspool\.drv|user32\.dll|gdi32\.dll')
  if ! loaded_dlls | grep -Fxq kernel32.dll; then
    e2e_fail "$1" "the loaddll channel reported nothing of the engine's process"
  elif [ -n "$found" ]; then
    e2e_fail "$1" "loaded: $(echo $found)"
  else
    e2e_pass "$1"
  fi
}

already=">> This INI file has already successed on this machine."
e2e_printers "E2E Libraries" "E2E Libraries:LPT1:"

# $1 version: a first run, then a second one that finds success recorded.
already_succeeded_run() {
  e2e_version "$1"
  e2e_deploy "Libraries-$1"
  e2e_ini "$DEPLOY_DIR/libraries.ini"
  E2E_WINEDEBUG=+loaddll e2e_run
  check_eq "$1: first run ends with exit code 0" 0 "$RUN_RC"
  check_loads "$1: the first run, which lists the printers, loads the spooler" winspool.drv
  # Wine as Windows 98 gives no default printer, so that run records False.
  [ "$1" != win98 ] || wine reg add \
    "HKCU\\Software\\Zandolin Engine\\Zandolin\\$DEPLOY\\libraries.ini\\$E2E_USER" \
    /v SUCCESS /d True /f >/dev/null 2>&1

  E2E_WINEDEBUG=+loaddll e2e_run
  check_eq "$1: second run ends with exit code 0" 0 "$RUN_RC"
  check_line "$1: second run takes the already-succeeded path" "$(e2e_debug_log)" "$already"
  check_loads_none "$1: the already-succeeded path loads no spooler, window or graphics library"
}

# Windows 10 keeps the status in a file of the user's profile (userenv), NT 4
# and Windows 98 in the registry.
already_succeeded_run win10
already_succeeded_run nt40
already_succeeded_run win98
e2e_version win10

# The same path with a pop-up: the box needs the window library, and only it.
e2e_deploy Libraries-Popup
e2e_ini "$DEPLOY_DIR/libraries.ini"
e2e_run
INI_UseClientPopup=True INI_UseSuccessClientPopup=True INI_SuccessMessage=Done \
  e2e_ini "$DEPLOY_DIR/libraries.ini"
E2E_WINEDEBUG=+loaddll e2e_run
check_line "pop-up run takes the already-succeeded path" "$(e2e_debug_log)" "$already"
check_loads "the pop-up of the already-succeeded path loads the window library" user32.dll
check_eq "the pop-up of the already-succeeded path loads no spooler" "" \
  "$(loaded_dlls | grep -Fx winspool.drv)"

# DLLs named as the spooler and the profile library, put beside the engine in
# the deployment folder (a share that others may write to): a first run loads
# both libraries, from the system folder, and nothing from that folder but
# the engine itself.
planted="$E2E_TMP/planted.dll"
if ! x86_64-w64-mingw32-g++ -O2 -shared -static -o "$planted" "$here/planted-dll.cpp" \
  2>"$E2E_TMP/planted.build"; then
  e2e_fail "the planted DLL builds" "$(cat "$E2E_TMP/planted.build")"
else
  e2e_deploy Libraries-Planted
  cp "$planted" "$DEPLOY_DIR/winspool.drv"
  cp "$planted" "$DEPLOY_DIR/userenv.dll"
  e2e_ini "$DEPLOY_DIR/libraries.ini"
  E2E_WINEDEBUG=+loaddll e2e_run
  check_eq "beside planted DLLs: the run ends with exit code 0" 0 "$RUN_RC"
  check_loads "beside planted DLLs: the run loads the spooler" winspool.drv
  check_loads "beside planted DLLs: the run loads the profile library" userenv.dll
  deploy=$(echo "$DEPLOY" | tr 'A-Z' 'a-z')
  check_eq "beside planted DLLs: nothing is loaded from the deployment folder but the engine" \
    "$deploy\\zandolinengine.exe" "$(loaded_files | grep -F "$deploy\\")"
fi

e2e_remove_printers "E2E Libraries"
