#!/usr/bin/env bash
# Signs Windows executables and DLLs in place (Authenticode, SHA-256) with
# osslsigncode:
#
#   scripts/sign-windows.sh FILE...
#
# The certificate is the one the administrator names:
#   ZANDOLIN_SIGN_CERT       the code-signing certificate, PEM or DER (a PEM
#                            file may hold the intermediate certificates too)
#   ZANDOLIN_SIGN_KEY        its private key, PEM, DER or PVK
# or, instead of both,
#   ZANDOLIN_SIGN_PKCS12     certificate and key in one PKCS#12 file (.pfx)
# and, when needed,
#   ZANDOLIN_SIGN_PASSWORD   the password of the key or of the PKCS#12 file
#   ZANDOLIN_SIGN_TIMESTAMP  the URL of an RFC 3161 time-stamp server: a
#                            time-stamped signature stays valid after the
#                            certificate expires
#
# When none is named, the files are signed with a throwaway self-signed
# certificate made here with openssl, FOR TESTING ONLY: Windows does not trust
# it. It is written to build/test-signing/ (certificate.pem, key.pem), where
# the tests find it, and stderr says so loudly.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

if [ $# -eq 0 ]; then
  echo "usage: $0 FILE..." >&2
  exit 2
fi

signer=()
if [ -n "${ZANDOLIN_SIGN_PKCS12:-}" ]; then
  signer=(-pkcs12 "$ZANDOLIN_SIGN_PKCS12")
elif [ -n "${ZANDOLIN_SIGN_CERT:-}" ] && [ -n "${ZANDOLIN_SIGN_KEY:-}" ]; then
  signer=(-certs "$ZANDOLIN_SIGN_CERT" -key "$ZANDOLIN_SIGN_KEY")
elif [ -n "${ZANDOLIN_SIGN_CERT:-}${ZANDOLIN_SIGN_KEY:-}" ]; then
  echo "sign-windows: ZANDOLIN_SIGN_CERT and ZANDOLIN_SIGN_KEY go together; one is missing" >&2
  exit 2
else
  test_dir="$root/build/test-signing"
  mkdir -p "$test_dir"
  openssl req -x509 -newkey rsa:3072 -sha256 -nodes -days 30 \
    -subj "/CN=Zandolin Engine TEST SIGNING ONLY - do not deploy" \
    -addext "basicConstraints=critical,CA:FALSE" \
    -addext "keyUsage=critical,digitalSignature" \
    -addext "extendedKeyUsage=codeSigning" \
    -keyout "$test_dir/key.pem" -out "$test_dir/certificate.pem" 2>"$test_dir/openssl.log" || {
    cat "$test_dir/openssl.log" >&2
    exit 1
  }
  signer=(-certs "$test_dir/certificate.pem" -key "$test_dir/key.pem")
  {
    echo "sign-windows: ************************************************************************"
    echo "sign-windows: NO SIGNING CERTIFICATE NAMED (ZANDOLIN_SIGN_CERT and ZANDOLIN_SIGN_KEY,"
    echo "sign-windows: or ZANDOLIN_SIGN_PKCS12). The files are signed with a throwaway"
    echo "sign-windows: self-signed certificate made just now, FOR TESTING ONLY. Windows does"
    echo "sign-windows: not trust it: do not deploy these files. Certificate:"
    echo "sign-windows:   $test_dir/certificate.pem"
    echo "sign-windows: ************************************************************************"
  } >&2
fi

options=(-h sha256 -n "Zandolin Engine")
[ -n "${ZANDOLIN_SIGN_TIMESTAMP:-}" ] && options+=(-ts "$ZANDOLIN_SIGN_TIMESTAMP")
# The password goes through standard input, not the command line.
[ -n "${ZANDOLIN_SIGN_PASSWORD:-}" ] && options+=(-readpass -)

for file in "$@"; do
  printf '%s' "${ZANDOLIN_SIGN_PASSWORD:-}" |
    osslsigncode sign "${signer[@]}" "${options[@]}" -in "$file" -out "$file.signed" >"$file.sign.log" 2>&1 || {
    echo "sign-windows: cannot sign $file:" >&2
    cat "$file.sign.log" >&2
    rm -f "$file.signed" "$file.sign.log"
    exit 1
  }
  mv "$file.signed" "$file"
  rm -f "$file.sign.log"
  echo "signed $file"
done
