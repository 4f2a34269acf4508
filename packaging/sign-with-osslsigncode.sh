#!/usr/bin/env bash
# Signs one file with osslsigncode.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: SIGN=packaging/sign-with-osslsigncode.sh ./package.sh
       packaging/sign-with-osslsigncode.sh FILE

Signs a program, library or MSI in place with SHA-256. Variables:
  SIGN_CERTIFICATES    file with the certificate and its chain (PEM)
  SIGN_KEY             file with the key (PEM), or the PKCS #11 URI of a key in a token
  SIGN_PASSWORD_FILE   file with the password of the key or the PIN of the token; empty: there is none
  SIGN_MODULE          the library of the token (PKCS #11); empty: the key is in a file
  SIGN_TIMESTAMP       URL of a time-stamp server (RFC 3161), so that the signature stays valid when the certificate
                       expires; empty: the signature contains the time SOURCE_DATE_EPOCH and depends on nothing else
TEXT
}

case "$#:${1:-}" in
  1:-h | 1:--help) usage; exit 0 ;;
  1:[!-]*) ;;
  *) usage >&2; exit 2 ;;
esac
file=$1
words=(-h sha256 -n 'Torvane Log Server'
  -certs "${SIGN_CERTIFICATES:?is not set; see --help}" -key "${SIGN_KEY:?is not set; see --help}")
[[ -z ${SIGN_PASSWORD_FILE:-} ]] || words+=(-readpass "$SIGN_PASSWORD_FILE")
[[ -z ${SIGN_MODULE:-} ]] || words+=(-pkcs11module "$SIGN_MODULE")
if [[ -n ${SIGN_TIMESTAMP:-} ]]; then
  words+=(-ts "$SIGN_TIMESTAMP")
else
  words+=(-time "${SOURCE_DATE_EPOCH:?is not set}")
fi
# The signature of an MSI then covers the properties of its file, too.
[[ $(head -c 4 "$file" | od -An -tx1 | tr -d ' ') != d0cf11e0 ]] || words+=(-add-msi-dse)

signed=$(mktemp --dry-run "$file.XXXXXX")
trap 'rm -f "$signed"' EXIT
osslsigncode sign "${words[@]}" -in "$file" -out "$signed"
# Into the file as it is, so that its access rights stay.
cat "$signed" >"$file"
