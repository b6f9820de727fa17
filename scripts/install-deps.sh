#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# Runs apt-get update once, and only when something has to be installed.
set -euo pipefail

packages=(
  g++ cmake ninja-build make pkg-config
  g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix binutils-mingw-w64
  g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32
  wine64 wine
  libgtest-dev libgmock-dev nlohmann-json3-dev
  libldap-dev slapd ldap-utils
  python3 python3-aiosmtpd
  xvfb xdotool imagemagick x11-apps fonts-wine
  osslsigncode openssl zip unzip cmark-gfm
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-deps: installing ${missing[*]}"
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO=sudo
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
