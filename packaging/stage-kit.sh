#!/usr/bin/env bash
# Collects the files of the conformance kit's package.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/stage-kit.sh PIPE_CLAIMS LICENSES STAGE

Puts the conformance kit, the program PIPE_CLAIMS without symbols, the documents, the reference programs and the
directory LICENSES into the new directory STAGE, so that the links between them work.
TEXT
}

case "$#:${1:-}" in
  1:-h | 1:--help) usage; exit 0 ;;
  3:[!-]*) ;;
  *) usage >&2; exit 2 ;;
esac
program=$1 licenses=$2 stage=$3
root=$(cd "$(dirname "$0")/.." && pwd -P)
[[ ! -e $stage ]] || { echo "stage-kit.sh: $stage already exists" >&2; exit 1; }

mkdir -p "$stage/examples"
cp -r "$root/conformance" "$stage/conformance"
find "$stage/conformance" -name __pycache__ -exec rm -r {} +
SOURCE_DATE_EPOCH=0 x86_64-w64-mingw32-strip -o "$stage/conformance/pipe_claims.exe" "$program"
install -D -m 644 -t "$stage/docs" "$root"/docs/*.md
cp -r "$root/docs/decisions" "$root/docs/schema" "$stage/docs/"
install -m 644 -t "$stage/examples" "$root"/examples/reference_*.py
cp -r "$licenses" "$stage/licenses"
find "$stage" -type f -exec chmod 644 {} +
