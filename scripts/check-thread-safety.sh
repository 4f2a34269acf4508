#!/usr/bin/env bash
# Runs clang's thread-safety analysis (annotated locks) over every source file of the rooms.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/check-thread-safety.sh [-j JOBS] [FILE...]

Lets clang check the lock annotations (util/thread_annotations.h) of every .cpp file outside tests, or of the files
named; compiles nothing. Prints what is found and exits with 1.
TEXT
}

jobs=$(nproc)
case ${1:-} in
  -h | --help) usage; exit 0 ;;
  -j) jobs=${2:?}; shift 2 ;;
  -*) usage >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."
. scripts/rooms.sh

# clang finds neither the C++ headers of Debian's posix variant by itself nor may it see those of the C library.
gcc=/usr/lib/gcc/x86_64-w64-mingw32/12-posix/include/c++
export TAMLOG_CLANG="clang++-14 --target=x86_64-w64-mingw32 -nostdinc
  -isystem$gcc -isystem$gcc/x86_64-w64-mingw32 -isystem$gcc/backward
  -isystem/usr/lib/llvm-14/lib/clang/14.0.6/include -isystem/usr/x86_64-w64-mingw32/include
  -std=c++20 -D_WIN32_WINNT=0x0601 -DNOMINMAX -DWIN32_LEAN_AND_MEAN -I. -isystembuild/windows/headers
  -fsyntax-only -Wthread-safety -Werror=thread-safety"

files=("$@")
(($# > 0)) || mapfile -t files < <(room_files cpp | grep -v '^tests/\|^fuzz/\|^bench/')
((${#files[@]} > 0)) || { echo "check-thread-safety.sh: no files" >&2; exit 1; }
# shellcheck disable=SC2016
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$jobs" sh -c '$TAMLOG_CLANG "$1"' check || exit 1
echo "thread safety: ${#files[@]} files"
