#!/usr/bin/env bash
# Checks that every C and C++ file of ours is formatted by .clang-format, or formats them.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/check-format.sh [--fix] [FILE...]

Checks every C and C++ file of the tree (or the files named) against .clang-format; prints what differs and exits
with 1. With --fix the files are formatted instead.
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

files=("$@")
(($# > 0)) || mapfile -t files < <(room_files c cpp h hpp)
printf '%s\0' "${files[@]}" | xargs -0 -n 16 -P "$(nproc)" clang-format-14 --style=file "${mode[@]}"
echo "format: ${#files[@]} files"
