#!/usr/bin/env bash
# Checks the format of our C and C++ files and the length of the lines of our documents, or formats the C and C++ files.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/check-format.sh [--fix] [FILE...]

Checks every C and C++ file of the tree against .clang-format, and that no line of a document (*.md) has more than 120
characters. Given FILEs, checks only these. Prints the differences and exits with 1. With --fix it formats the C and C++
files instead; too long lines of documents must be wrapped by hand.
TEXT
}

mode=(--dry-run --Werror)
case ${1:-} in
  -h | --help) usage; exit 0 ;;
  --fix) mode=(-i); shift ;;
  -*) usage >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."
. scripts/rooms.sh

sources=() documents=()
if (($# > 0)); then
  for file in "$@"; do
    if [[ $file == *.md ]]; then documents+=("$file"); else sources+=("$file"); fi
  done
else
  mapfile -t sources < <(room_files c cpp h hpp)
  mapfile -t documents < <(find . -name build -prune -o -name .git -prune -o -name '*.md' -printf '%P\n' | sort)
fi

failed=0
if ((${#sources[@]} > 0)); then
  printf '%s\0' "${sources[@]}" | xargs -0 -n 16 -P "$(nproc)" clang-format-14 --style=file "${mode[@]}" || failed=1
fi
# Characters, not bytes: C.UTF-8 makes grep count them so.
if ((${#documents[@]} > 0)) && LC_ALL=C.UTF-8 grep -nHE '^.{121}' -- "${documents[@]}" >&2; then
  echo 'check-format.sh: the lines above have more than 120 characters' >&2
  failed=1
fi
((failed == 0)) || exit 1
echo "format: ${#sources[@]} files, ${#documents[@]} documents"
