#!/usr/bin/env bash
# Checks that the tree is fit for a release.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/check-release.sh

Refuses, with one line for each reason: placeholders in packaging/maker.env, no command for signatures, uncommitted
changes. Exit code: 0 without a reason, otherwise 1.
TEXT
}

case "$#:${1:-}" in
  0:) ;;
  1:-h | 1:--help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."
# shellcheck source=packaging/maker.env
. packaging/maker.env

reasons=0
refuse() {
  echo "check-release.sh: $*" >&2
  reasons=$((reasons + 1))
}
for name in MAKER_CONTACT MAKER_HOMEPAGE MAKER_LICENSE MAKER_COPYRIGHT DOWNLOAD_URL; do
  case ${!name,,} in
    *placeholder* | *example.invalid* | '')
      refuse "$name is a placeholder: ${!name}; fill it in in packaging/maker.env"
      ;;
  esac
done
[[ -n $SIGN ]] || refuse 'SIGN is empty: the packages would not be signed; see docs/packages.md, "Signatures"'
changes=$(git status --porcelain) || refuse 'git does not say whether the tree has uncommitted changes'
[[ -z $changes ]] || refuse 'the tree has uncommitted changes'
((reasons == 0))
