#!/usr/bin/env bash
# The release package: makes it with scripts/package.sh, checks what it holds
# against the builds it came from, and runs the Wine tests on its 64-bit
# engine, with both its event message files:
#
#   tests/package/test-package.sh ZANDOLIN_DEBUG
#
# ZANDOLIN_DEBUG is the Linux zandolin-debug the Wine tests decode with. The
# package is signed with the throwaway test certificate (no certificate named,
# whatever the environment says) and verified against it; signing with a named
# certificate is checked on copies. Each check prints one line; the closing
# line counts the checks of the package and of the Wine tests together.
set -uo pipefail

if [ $# -ne 1 ]; then
  echo "usage: $0 ZANDOLIN_DEBUG" >&2
  exit 2
fi
root=$(cd "$(dirname "$0")/../.." && pwd)
debug=$(realpath "$1")
work=$(mktemp -d "${TMPDIR:-/tmp}/zandolin-package.XXXXXX")
trap 'rm -rf "$work"' EXIT

version=$(sed -n 's/^project(ZandolinEngine VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
IFS=. read -r major minor patch <<<"$version"
name="zandolin-engine-$version-windows"
zip="$root/dist/$name.zip"
pkg="$work/$name"
export E2E_EXE="$pkg/x64/ZandolinEngine.exe" E2E_RESULTS="$work/results" E2E_TMP="$work"
: >"$E2E_RESULTS"
source "$root/tests/e2e/lib.sh"

echo "== making the package"
rm -f "$zip"
env -u ZANDOLIN_SIGN_CERT -u ZANDOLIN_SIGN_KEY -u ZANDOLIN_SIGN_PKCS12 -u ZANDOLIN_SIGN_PASSWORD \
  -u ZANDOLIN_SIGN_TIMESTAMP "$root/scripts/package.sh" >"$work/package.out" 2>"$work/package.err"
rc=$?
check_eq "scripts/package.sh succeeds" 0 "$rc"
[ $rc -eq 0 ] || { cat "$work/package.out" "$work/package.err"; exit 1; }
check_line "it says on stderr that the test certificate is for testing only" "$work/package.err" \
  "sign-windows: self-signed certificate made just now, FOR TESTING ONLY. Windows does"
check_file "the zip is named by the project's version" "$zip"
ca="$root/build/test-signing/certificate.pem"

# --- what it holds ----------------------------------------------------------------

listed() { unzip -Z1 "$zip" | grep -v '/$' | LC_ALL=C sort; }
expected=$(
  {
    echo README.md
    echo README.html
    for page in "$root"/docs/*.md; do
      echo "docs/$(basename "$page")"
      echo "docs/$(basename "$page" .md).html"
    done
    for file in "$root"/docs/*.xml; do echo "docs/$(basename "$file")"; done
    for example in "$root"/examples/*/; do echo "examples/$(basename "$example").ini"; done
    echo SHA256SUMS
    sed 's|^|x64/|' "$root/build/build-win64/shipped-files.txt"
    sed 's|^|x86/|' "$root/build/build-win32/shipped-files.txt"
  } | sed "s|^|$name/|" | LC_ALL=C sort
)
check_eq "the package holds exactly its files" "$expected" "$(listed)"
for arch in x64 x86; do
  for file in ZandolinEngine.exe EvntMsg.dll zandolin-debug.exe; do
    check_eq "$arch/$file is in it" 1 "$(listed | grep -cFx "$name/$arch/$file")"
  done
done
# A program added to the Windows build without being added to the shipped
# list fails here.
for target in "build-win64 x64" "build-win32 x86"; do
  read -r dir arch <<<"$target"
  for made in "$root/build/$dir"/*.exe "$root/build/$dir"/*.dll; do
    [ -e "$made" ] || continue
    file=$(basename "$made")
    check_eq "$arch/$file, made by the build, is in the package" 1 \
      "$(listed | grep -cFx "$name/$arch/$file")"
  done
done

unzip -q "$zip" -d "$work"
check_eq "SHA256SUMS lists every other file" \
  "$(cd "$pkg" && find . -type f ! -name SHA256SUMS | sed 's|^\./||' | LC_ALL=C sort)" \
  "$(sed 's/^[0-9a-f]\{64\}  //' "$pkg/SHA256SUMS")"
sums=$(cd "$pkg" && sha256sum -c SHA256SUMS 2>&1)
check_eq "the checksums match" 0 "$(grep -vc ': OK$' <<<"$sums")"
for example in "$root"/examples/*/; do
  check_eq "examples/$(basename "$example").ini is the example's INI file" \
    "$(cat "$example"files/C/Deploy/*.ini)" "$(cat "$pkg/examples/$(basename "$example").ini")"
done
check_line "README.html has the README's title" "$pkg/README.html" "<title>Zandolin Engine</title>"
check_line "a link to another page leads to its HTML" "$pkg/docs/event-log.html" \
  "<a href=\"release-package.html\">the release package</a>.</p>"
check_line "tables are HTML tables" "$pkg/docs/event-log.html" "<td><code>EventMessageFile</code></td>"

# --- every executable and DLL ------------------------------------------------------

build_engine="$root/build/build-win64/ZandolinEngine.exe"
check_eq "the build's engine has debug sections (what the next checks look for)" yes \
  "$(x86_64-w64-mingw32-objdump -h "$build_engine" | grep -q ' \.debug_' && echo yes)"
for target in "x64 pei-x86-64 x86_64" "x86 pei-i386 i686"; do
  read -r arch format cpu <<<"$target"
  for path in "$pkg/$arch"/*; do
    file="$arch/$(basename "$path")"
    check_eq "$file is a $format file" "file format $format" \
      "$(x86_64-w64-mingw32-objdump -f "$path" | sed -n 's/.*\(file format .*\)/\1/p')"
    check_eq "$file is stripped: no .debug_ sections" 0 \
      "$(x86_64-w64-mingw32-objdump -h "$path" | grep -c ' \.debug_')"
    check_eq "$file imports only DLLs of the system" "" \
      "$("$root/scripts/check-imports.sh" "$path" 2>&1 >/dev/null)"
    rc=$("$cpu-w64-mingw32-windres" -i "$path" -O rc 2>&1 | tr -d '\r')
    check_eq "$file carries the version $version" \
      "$(printf ' FILEVERSION %s, %s, %s, 0\n PRODUCTVERSION %s, %s, %s, 0\n' \
        "$major" "$minor" "$patch" "$major" "$minor" "$patch")
      VALUE \"FileVersion\", \"$version\"
      VALUE \"OriginalFilename\", \"$(basename "$path")\"
      VALUE \"ProductVersion\", \"$version\"" \
      "$(grep -E '^ (FILE|PRODUCT)VERSION |"(FileVersion|ProductVersion|OriginalFilename)"' <<<"$rc")"
    verify=$(osslsigncode verify -CAfile "$ca" -in "$path" 2>&1)
    check_eq "$file verifies with osslsigncode" "0 ok" \
      "$? $(sed -n 's/^Signature verification: //p' <<<"$verify")"
    check_eq "$file is signed by the test certificate" \
      "Subject: /CN=Zandolin Engine TEST SIGNING ONLY - do not deploy" \
      "$(grep -m1 -o 'Subject: .*' <<<"$verify")"
  done
done

# The verification can fail: a changed byte, an unsigned file.
cp "$pkg/x64/ZandolinEngine.exe" "$work/changed.exe"
printf 'X' | dd of="$work/changed.exe" bs=1 seek=4096 conv=notrunc status=none
osslsigncode verify -CAfile "$ca" -in "$work/changed.exe" >/dev/null 2>&1
check_eq "a signed engine with one byte changed does not verify" 1 "$?"
osslsigncode verify -CAfile "$ca" -in "$build_engine" >/dev/null 2>&1
check_eq "the unsigned engine of the build does not verify" 1 "$?"

size=$(stat -c %s "$pkg/x64/ZandolinEngine.exe")
echo "x64/ZandolinEngine.exe: $size bytes, stripped and signed"
check_eq "the x64 engine is under 700 KB" yes "$([ "$size" -lt 700000 ] && echo yes)"

# --- signing with a certificate the administrator names -----------------------------

openssl req -x509 -newkey rsa:3072 -sha256 -days 2 -subj "/CN=Example Corp Code Signing" \
  -addext "extendedKeyUsage=codeSigning" -passout pass:s3cret \
  -keyout "$work/admin-key.pem" -out "$work/admin-cert.pem" >/dev/null 2>&1
openssl pkcs12 -export -in "$work/admin-cert.pem" -inkey "$work/admin-key.pem" -passin pass:s3cret \
  -passout pass:p12pass -out "$work/admin.pfx" >/dev/null 2>&1
for how in pem pkcs12; do
  copy="$work/$how-EvntMsg.dll"
  cp "$root/build/build-win64/EvntMsg.dll" "$copy"
  if [ $how = pem ]; then
    ZANDOLIN_SIGN_CERT="$work/admin-cert.pem" ZANDOLIN_SIGN_KEY="$work/admin-key.pem" \
      ZANDOLIN_SIGN_PASSWORD=s3cret "$root/scripts/sign-windows.sh" "$copy" >/dev/null 2>"$work/sign.err"
  else
    ZANDOLIN_SIGN_PKCS12="$work/admin.pfx" ZANDOLIN_SIGN_PASSWORD=p12pass \
      "$root/scripts/sign-windows.sh" "$copy" >/dev/null 2>"$work/sign.err"
  fi
  check_eq "signing with a named certificate ($how, with its password) succeeds, quietly" "0 " \
    "$? $(cat "$work/sign.err")"
  verify=$(osslsigncode verify -CAfile "$work/admin-cert.pem" -in "$copy" 2>&1)
  check_eq "the file signed with the named certificate ($how) verifies against it" \
    "0 Subject: /CN=Example Corp Code Signing" "$? $(grep -m1 -o 'Subject: .*' <<<"$verify")"
done
ZANDOLIN_SIGN_CERT="$work/admin-cert.pem" "$root/scripts/sign-windows.sh" "$copy" >/dev/null \
  2>"$work/sign.err"
check_eq "a certificate without its key is refused" \
  "2 sign-windows: ZANDOLIN_SIGN_CERT and ZANDOLIN_SIGN_KEY go together; one is missing" \
  "$? $(cat "$work/sign.err")"

passed=$(grep -c '^PASS$' "$E2E_RESULTS")
failed=$(grep -c '^FAIL$' "$E2E_RESULTS")
echo "package: $passed passed, $failed failed"

# --- the package's files under Wine ----------------------------------------------

echo "== the Wine tests with the package's x64 engine and capture"
E2E_MESSAGE_FILES="$pkg/x64/EvntMsg.dll $pkg/x86/EvntMsg.dll" \
  "$root/tests/e2e/run-all.sh" "$pkg/x64/ZandolinEngine.exe" "$debug" "$pkg/x64/zandolin-capture.exe" |
  tee "$work/wine.log"
wine_passed=0 wine_failed=1
if [[ $(tail -n 1 "$work/wine.log") =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
  wine_passed=${BASH_REMATCH[1]} wine_failed=${BASH_REMATCH[2]}
fi
echo "$((passed + wine_passed)) passed, $((failed + wine_failed)) failed"
[ "$failed" -eq 0 ] && [ "$wine_failed" -eq 0 ]
