#!/usr/bin/env bash
# Checks that Windows files import nothing but DLLs that every Windows has,
# so that each one runs when copied alone:
#
#   scripts/check-imports.sh FILE...
#
# Prints the imports of each file; exits 1, naming the file and the DLLs,
# when one imports anything else (libstdc++, libgcc, libwinpthread, ...).
set -euo pipefail

system_dlls='^(kernel32|user32|gdi32|advapi32|winspool\.drv|msvcrt|comctl32|userenv|ws2_32'
system_dlls+='|wsock32|wldap32|ole32|oleaut32|shell32)(\.dll)?$'

status=0
for file in "$@"; do
  imports=$(x86_64-w64-mingw32-objdump -p "$file" | sed -n 's/^\s*DLL Name: //p')
  bad=$(tr 'A-Z' 'a-z' <<<"$imports" | grep -Ev "$system_dlls" | grep . || true)
  if [ -n "$bad" ]; then
    echo "check-imports: $file imports DLLs that are not the system's:" $bad >&2
    status=1
  fi
  echo "$file imports:" ${imports:-nothing}
done
exit $status
