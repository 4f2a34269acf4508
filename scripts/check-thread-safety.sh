#!/usr/bin/env bash
# Runs clang's thread-safety analysis (annotated locks) over every source file of the rooms.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/check-thread-safety.sh [-j JOBS]

Lets clang check the lock annotations (util/thread_annotations.h) of every .cpp file outside tests that build/windows
compiles; compiles nothing itself. Needs build/windows to be configured. Prints what is found and exits with 1.
TEXT
}

jobs=$(nproc)
case ${1:-} in
  -h | --help) usage; exit 0 ;;
  -j) jobs=${2:?}; shift 2 ;;
  -*) usage >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."

# clang finds neither the C++ headers of Debian's posix variant by itself nor may it see those of the C library.
gcc=/usr/lib/gcc/x86_64-w64-mingw32/12-posix/include/c++
export TAMLOG_CLANG="clang++-14 --target=x86_64-w64-mingw32 -nostdinc -std=c++20
  -isystem$gcc -isystem$gcc/x86_64-w64-mingw32 -isystem$gcc/backward
  -isystem/usr/lib/llvm-14/lib/clang/14.0.6/include -isystem/usr/x86_64-w64-mingw32/include
  -fsyntax-only -Wthread-safety -Werror=thread-safety"

# One line of compiled-files.py: file, tab, flags.
check_file() {
  local flags
  eval "flags=(${1#*$'\t'})" # they are quoted for the shell
  # shellcheck disable=SC2086
  $TAMLOG_CLANG "${flags[@]}" "${1%%$'\t'*}"
}
export -f check_file

mapfile -t files < <(scripts/compiled-files.py --no-tests --flags)
((${#files[@]} > 0)) || { echo "check-thread-safety.sh: no files" >&2; exit 1; }
# shellcheck disable=SC2016
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$jobs" bash -c 'check_file "$1"' check || exit 1
echo "thread safety: ${#files[@]} files"
