#!/usr/bin/env bash
# Builds the Windows release and packs what an administrator deploys:
#
#   scripts/package.sh
#
# writes dist/zandolin-engine-<version>-windows.zip, whose one folder
# zandolin-engine-<version>-windows/ holds
#   x64/, x86/    for 64-bit and for 32-bit Windows: ZandolinEngine.exe,
#                 EvntMsg.dll and the tools (the build's shipped-files.txt),
#                 stripped, signed, each with the version block
#   examples/     the example INI files, each named as its example client
#                 (examples/basic/files/C/Deploy/migration.ini: examples/basic.ini)
#   README.md, docs/*.md   the administrator documentation, and each as .html
#   docs/*.xml    the files the pages give (the Event Forwarding subscription)
#   SHA256SUMS    the SHA-256 of every other file, as sha256sum writes it
#
# <version> is the project's version (CMakeLists.txt), as the build's
# Version.h gives it to every program. The builds are made in build/build-win64
# and build/build-win32, as scripts/test-all.sh makes them.
#
# Signing (scripts/sign-windows.sh): the certificate named by
# ZANDOLIN_SIGN_CERT and ZANDOLIN_SIGN_KEY, or by ZANDOLIN_SIGN_PKCS12, with
# ZANDOLIN_SIGN_PASSWORD and ZANDOLIN_SIGN_TIMESTAMP when needed. With none
# named, a throwaway self-signed certificate, for testing only.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

"$root/scripts/install-deps.sh"
"$root/scripts/build-windows.sh" "$root/build"

version=$(sed -n 's/^#define ZANDOLIN_VERSION "\(.*\)"$/\1/p' "$root/build/build-win64/generated/Version.h")
[ -n "$version" ] || { echo "package: no ZANDOLIN_VERSION in the build's Version.h" >&2; exit 1; }
name="zandolin-engine-$version-windows"
stage="$root/build/package/$name"
rm -rf "$stage"
mkdir -p "$stage/examples" "$stage/docs" "$root/dist"

echo "== $name"
for target in "x64 build-win64 x86_64" "x86 build-win32 i686"; do
  read -r folder dir arch <<<"$target"
  mkdir -p "$stage/$folder"
  while read -r file; do
    "$arch-w64-mingw32-strip" -o "$stage/$folder/$file" "$root/build/$dir/$file"
  done <"$root/build/$dir/shipped-files.txt"
done
"$root/scripts/sign-windows.sh" "$stage"/x64/* "$stage"/x86/*

for example in "$root"/examples/*/; do
  cp "$example"files/C/Deploy/*.ini "$stage/examples/$(basename "$example").ini"
done

# The documentation as Markdown, and as HTML whose links to the other pages
# lead to their HTML.
to_html() {
  local title
  title=$(sed -n 's/^# //p' "$1" | head -n 1)
  {
    printf '<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8">\n'
    printf '<title>%s</title>\n' "$title"
    printf '<style>body{font-family:sans-serif;max-width:52em;margin:2em auto;padding:0 1em;'
    printf 'line-height:1.45}table{border-collapse:collapse}th,td{border:1px solid #aaa;'
    printf 'padding:.2em .5em;vertical-align:top}pre{background:#f4f4f4;padding:.5em;'
    printf 'overflow-x:auto}</style>\n</head>\n<body>\n'
    cmark-gfm -e table -e autolink "$1" | sed -E 's/(href="[^":]*)\.md(#[^"]*)?"/\1.html\2"/g'
    printf '</body>\n</html>\n'
  } >"$2"
}
cp "$root/README.md" "$stage/"
to_html "$root/README.md" "$stage/README.html"
for page in "$root"/docs/*.md; do
  cp "$page" "$stage/docs/"
  to_html "$page" "$stage/docs/$(basename "$page" .md).html"
done
cp "$root"/docs/*.xml "$stage/docs/"

(cd "$stage" && find . -type f ! -name SHA256SUMS | sed 's|^\./||' | LC_ALL=C sort |
  xargs sha256sum >SHA256SUMS)

zip="$root/dist/$name.zip"
rm -f "$zip"
(cd "$stage/.." && zip -q -X -r "$zip" "$name")
echo "package: wrote $zip"
