#!/usr/bin/env bash
# INI files read by Windows' GetPrivateProfileStringA (Wine's, through the
# Windows build of profile-probe) and by the simulated client's (the Linux
# build), in code pages 1252 and 932: the tricky files of ini-corpus/, the
# queries of ini-corpus/queries.txt, and every answer compared. Each answer
# that differs must be named, with its reason, in ini-corpus/differences.txt,
# and each line there must still name a difference.
source "$(dirname "$0")/lib.sh"

here=$(cd "$(dirname "$0")" && pwd)
corpus="$here/ini-corpus"
linux_probe="$E2E_LINUX_BUILD/tests/profile-probe"

if [ ! -x "$linux_probe" ]; then
  e2e_fail "the simulated client's profile probe" "missing $linux_probe"
  exit 0
fi
probe_exe="$E2E_TMP/profile-probe.exe"
if ! x86_64-w64-mingw32-g++ -O2 -static -std=c++17 -o "$probe_exe" "$here/profile-probe.cpp" \
  2>"$E2E_TMP/profile-probe.build"; then
  e2e_fail "the profile probe builds for Windows" "$(cat "$E2E_TMP/profile-probe.build")"
  exit 0
fi

windows_corpus=$(e2e_unix 'C:\E2E\IniCorpus')
rm -rf "$windows_corpus"
mkdir -p "$windows_corpus"
cp "$corpus"/*.ini "$corpus/queries.txt" "$windows_corpus/"
cp "$probe_exe" "$windows_corpus/"

# The number of answers queries.txt asks for: each query of FILE "*" for
# every file, each other query for its own file.
expected=$(awk -F'|' '{ sub(/\r$/, "") } /^#/ || $0 == "" { next }
  $1 == "file" && NF == 2 { files[$2] = 1; n++; next }
  NF == 4 { if ($1 == "*") every++; else own[$1]++ }
  END { total = n * every; for (f in own) if (f in files) total += own[f]; print total }' "$corpus/queries.txt")

# Wine takes the ANSI code page from the locale of the process: C gives
# 1252, Japanese 932.
for cp in 1252 932; do
  case $cp in
    1252) locale=C.UTF-8 ;;
    932) locale=ja_JP.UTF-8 ;;
  esac
  LC_ALL=$locale timeout 120 wine 'C:\E2E\IniCorpus\profile-probe.exe' 'C:\E2E\IniCorpus\queries.txt' \
    'C:\E2E\IniCorpus' 2>"$E2E_TMP/profile.wine.$cp.err" | tr -d '\r' >"$E2E_TMP/profile.wine.$cp"
  "$linux_probe" --code-page "$cp" "$corpus/queries.txt" "$corpus" >"$E2E_TMP/profile.sim.$cp" \
    2>"$E2E_TMP/profile.sim.$cp.err"
  check_eq "code page $cp: the simulated client answers every query" "$expected" \
    "$(grep -c ' => ' "$E2E_TMP/profile.sim.$cp")"
  check_eq "code page $cp: the simulated client's probe reports no problem" "" \
    "$(cat "$E2E_TMP/profile.sim.$cp.err")"
  check_eq "code page $cp: Wine answers every query" "$expected" \
    "$(grep -c ' => ' "$E2E_TMP/profile.wine.$cp")"
done

# The answers compared: every difference named in differences.txt, every line
# of it naming one.
/usr/bin/python3 - "$corpus/differences.txt" "$E2E_TMP" >"$E2E_TMP/profile.compare" <<'EOF'
import sys

allowed = []
for line in open(sys.argv[1], encoding="utf-8"):
    if line.startswith("#") or not line.strip():
        continue
    pattern, pages, reason = line.rstrip("\n").split("\t")
    allowed.append([pattern.split("|"), pages.split(","), reason, 0])

def matches(pattern, query):
    return len(pattern) == len(query) and all(p in ("*", q) for p, q in zip(pattern, query))

unnamed = []
for cp in ("1252", "932"):
    sim = open(f"{sys.argv[2]}/profile.sim.{cp}", encoding="latin-1").read().splitlines()
    wine = open(f"{sys.argv[2]}/profile.wine.{cp}", encoding="latin-1").read().splitlines()
    for s, w in zip(sim, wine):
        if s == w:
            continue
        query = s.split(" => ")[0].split("|")
        names = [a for a in allowed if cp in a[1] and matches(a[0], query)]
        for a in names:
            a[3] += 1
        if not names:
            unnamed.append(f"code page {cp}: simulated client: {s}\n      Wine:              {w}")
for u in unnamed:
    print("UNNAMED " + u)
for pattern, pages, reason, count in allowed:
    if count == 0:
        print("STALE " + "|".join(pattern) + " (" + ",".join(pages) + "): " + reason)
    else:
        print(f"NAMED {count} " + "|".join(pattern) + " (" + ",".join(pages) + ")")
EOF

named=$(grep -c '^NAMED ' "$E2E_TMP/profile.compare")
mapfile -t unnamed < <(sed -n 's/^UNNAMED //p' "$E2E_TMP/profile.compare")
mapfile -t stale < <(sed -n 's/^STALE //p' "$E2E_TMP/profile.compare")
if [ ${#unnamed[@]} -eq 0 ]; then
  e2e_pass "every answer that differs from Wine's has its reason ($named reasons)"
else
  e2e_fail "every answer that differs from Wine's has its reason" "${unnamed[@]}"
fi
if [ ${#stale[@]} -eq 0 ]; then
  e2e_pass "every reason in differences.txt still names a difference"
else
  e2e_fail "every reason in differences.txt still names a difference" "${stale[@]}"
fi
