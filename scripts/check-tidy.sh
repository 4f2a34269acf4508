#!/usr/bin/env bash
# Runs clang-tidy over every source file of ours that the Windows build compiles.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/check-tidy.sh [-j JOBS] [--all | FILE...]

Runs clang-tidy (the checks of .clang-tidy) over the .cpp files of our rooms that build/windows compiles, or over
the files named. --all takes the tests as well: the macros of the test library make that about ten processor seconds a
file, so test.sh leaves it to whoever changes tests. Needs build/windows to be configured. Prints what is found and
exits with 1.
TEXT
}

jobs=$(nproc)
case ${1:-} in
  -h | --help) usage; exit 0 ;;
  -j) jobs=${2:?}; shift 2 ;;
  -*) usage >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."
# One file: silent when it is clean. clang-tidy counts what it left out on the error stream.
check_file() {
  local output
  if output=$(clang-tidy-14 -p build/windows --quiet "$1" 2>&1); then return 0; fi
  printf '%s: clang-tidy\n%s\n' "$1" "$output"
  return 1
}
export -f check_file

files=("$@")
case ${1:-} in
  '') mapfile -t files < <(scripts/compiled-files.py --no-tests) ;;
  --all) mapfile -t files < <(scripts/compiled-files.py) ;;
esac
((${#files[@]} > 0)) || { echo "check-tidy.sh: no files" >&2; exit 1; }
# shellcheck disable=SC2016
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$jobs" bash -c 'check_file "$1"' check || exit 1
echo "clang-tidy: ${#files[@]} files"
