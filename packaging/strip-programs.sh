#!/usr/bin/env bash
# Splits the programs of a build into stripped ones and their symbols.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/strip-programs.sh BUILT TARGET

Copies the programs and libraries of the packages from the directory BUILT to TARGET without symbols, and their symbols
to TARGET/symbols/NAME.debug. Both carry the same build id.
TEXT
}

case "$#:${1:-}" in
  1:-h | 1:--help) usage; exit 0 ;;
  2:[!-]*) ;;
  *) usage >&2; exit 2 ;;
esac
built=$1 target=$2
# The tools would write the present time into the headers.
export SOURCE_DATE_EPOCH=0
mkdir -p "$target/symbols"
for program in TamLogServer.exe tamlogctl.exe tamlogcheck.exe tamlog.dll setup_helper.exe msi_actions.dll; do
  [[ -f $built/$program ]] || { echo "strip-programs.sh: $built/$program is missing; build it first" >&2; exit 1; }
  x86_64-w64-mingw32-objcopy --only-keep-debug "$built/$program" "$target/symbols/$program.debug"
  x86_64-w64-mingw32-strip -o "$target/$program" "$built/$program"
done
