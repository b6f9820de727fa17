#!/usr/bin/env bash
# Installs the Debian packages a task needs, when they are missing:
#
#   scripts/install-deps.sh run   building zandolin-sim and running an
#                                 example: compiler, CMake, Ninja, the JSON
#                                 and LDAP headers
#   scripts/install-deps.sh       everything the builds and the tests need
#
# Runs apt-get update once, and only when something has to be installed.
set -euo pipefail

run_packages=(g++ cmake ninja-build nlohmann-json3-dev libldap-dev)
test_packages=(
  make pkg-config
  clang libclang-rt-14-dev
  g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix binutils-mingw-w64
  g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32
  wine64 wine
  libgtest-dev libgmock-dev
  slapd ldap-utils
  python3 python3-aiosmtpd
  xvfb xdotool imagemagick x11-apps fonts-wine
  osslsigncode openssl zip unzip cmark-gfm
  chromium
)

case "${1:-all}" in
  run) packages=("${run_packages[@]}") ;;
  all) packages=("${run_packages[@]}" "${test_packages[@]}") ;;
  *)
    echo "usage: scripts/install-deps.sh [run|all]" >&2
    exit 2
    ;;
esac

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
