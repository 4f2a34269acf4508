#!/usr/bin/env bash
# Shows that the packages do not depend on the place and time of the build.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/compare-places.sh

Clones the last commit into a temporary directory, makes the packages there without a compiler cache, and compares them
with those in build/packages, which ./package.sh must have made from the same commit. Takes as long as a whole build.
Exit code: 0 when all files are equal, otherwise 1.
TEXT
}

case "$#:${1:-}" in
  0:) ;;
  1:-h | 1:--help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."
[[ -e build/packages/SHA256SUMS ]] || { echo 'compare-places.sh: run ./package.sh first' >&2; exit 1; }
[[ -z $(git status --porcelain) ]] || { echo 'compare-places.sh: commit your changes first' >&2; exit 1; }
other=$(mktemp -d)
trap 'rm -rf "$other"' EXIT
cp build/packages/SHA256SUMS "$other/here"
git clone --quiet . "$other/elsewhere"
CCACHE_DISABLE=1 "$other/elsewhere/package.sh" --no-install
if ! diff "$other/here" "$other/elsewhere/build/packages/SHA256SUMS"; then
  echo 'compare-places.sh: the packages differ' >&2
  exit 1
fi
echo 'The packages of both places are equal.'
