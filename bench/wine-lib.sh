# Shared by the benchmarks of the Windows build under Wine; sourced once
# their arguments are read:
#
#   source bench/wine-lib.sh NAME FOLDER TOOL...
#
# checks that the tools are installed (NAME says who asks), makes the working
# folder $work, and the Wine prefix: WINEPREFIX when it is set and exists,
# otherwise a new one in $work. On exit Wine is stopped and $work removed,
# and FOLDER (below drive_c) of a prefix that is kept.
bench_name=$1
bench_folder=$2
shift 2
for tool in "$@"; do
  command -v "$tool" >/dev/null || { echo "$bench_name: $tool is not installed" >&2; exit 2; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/zandolin-bench.XXXXXX")
own_prefix=
if [ -z "${WINEPREFIX:-}" ] || [ ! -d "$WINEPREFIX" ]; then
  export WINEPREFIX="$work/prefix"
  own_prefix=yes
fi
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY
cleanup() {
  wineserver -k >/dev/null 2>&1
  wineserver -w >/dev/null 2>&1
  rm -rf "$work"
  [ -n "$own_prefix" ] || rm -rf "$WINEPREFIX/drive_c/$bench_folder"
}
trap cleanup EXIT

if [ -n "$own_prefix" ]; then
  echo "Making a Wine prefix in $WINEPREFIX ..."
  wineboot -i >"$work/wineboot.log" 2>&1
  wineserver -w
fi
