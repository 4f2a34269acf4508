#!/usr/bin/env bash
# Collects the files of the Windows packages.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/stage.sh PROGRAMS BUILD STAGE

Puts the stripped programs of the directory PROGRAMS, the client library of the CMake directory BUILD, its examples and
the documents into the directory STAGE, as the packages contain them.
TEXT
}

case "$#:${1:-}" in
  1:-h | 1:--help) usage; exit 0 ;;
  3:[!-]*) ;;
  *) usage >&2; exit 2 ;;
esac
programs=$1 build=$2 stage=$3
root=$(cd "$(dirname "$0")/.." && pwd -P)

install -D -m 644 -t "$stage" "$programs/TamLogServer.exe" "$programs/tamlogctl.exe" "$programs/tamlogcheck.exe" \
  "$root/CHANGELOG.md" "$root/packaging/README.txt"
sed -i 's/$/\r/' "$stage/README.txt"

cmake --install "$build" --prefix "$stage/library" --component client >/dev/null
install -m 644 "$programs/tamlog.dll" "$stage/library/bin/tamlog.dll"
SOURCE_DATE_EPOCH=0 x86_64-w64-mingw32-strip --strip-debug --enable-deterministic-archives "$stage/library/lib/libtamlog.a"
mkdir -p "$stage/library/examples"
install -m 644 -t "$stage/library/examples" "$root"/examples/*

install -D -m 644 -t "$stage/docs" "$root"/docs/*.md
cp -r "$root/docs/decisions" "$root/docs/schema" "$stage/docs/"
find "$stage" -type f -exec chmod 644 {} +
