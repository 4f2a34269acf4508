#!/usr/bin/env bash
# Runs clang-tidy over every source file of ours that the Windows build compiles.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/check-tidy.sh [-j JOBS] [--deep] [--all | FILE...]

Runs clang-tidy (the checks of .clang-tidy) over the .cpp files of our rooms that build/windows compiles, or over
the files named. Left out unless asked for, because they would take most of the time:
  --deep  the path analysis of the clang-analyzer checks: for whoever changes how resources are held
  --all   the tests, and the sources that include the command line's parser: macros and templates of libraries
Needs build/windows to be configured. Prints what is found and exits with 1.
TEXT
}

jobs=$(nproc)
export depth='--checks=-clang-analyzer-*'
while [[ ${1:-} == -* && ${1:-} != --all ]]; do
  case $1 in
    -h | --help) usage; exit 0 ;;
    -j) jobs=${2:?}; shift ;;
    --deep) depth=--checks= ;;
    *) usage >&2; exit 2 ;;
  esac
  shift
done
cd "$(dirname "$0")/.."
# One file: silent when it is clean. clang-tidy counts what it left out on the error stream.
check_file() {
  local output
  if output=$(clang-tidy-14 -p build/windows --quiet "$depth" "$1" 2>&1); then return 0; fi
  printf '%s: clang-tidy\n%s\n' "$1" "$output"
  return 1
}
export -f check_file

files=("$@")
case ${1:-} in
  '') mapfile -t files < <(scripts/compiled-files.py --no-tests | xargs grep -L '^#include <CLI/CLI.hpp>') ;;
  --all) mapfile -t files < <(scripts/compiled-files.py) ;;
esac
((${#files[@]} > 0)) || { echo "check-tidy.sh: no files" >&2; exit 1; }
# shellcheck disable=SC2016
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$jobs" bash -c 'check_file "$1"' check || exit 1
echo "clang-tidy: ${#files[@]} files"
