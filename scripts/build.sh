#!/usr/bin/env bash
# Configures and builds one preset.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/build.sh [--configure-only] [PRESET [TARGET...]]

Builds all targets or the named ones of a preset of CMakePresets.json (default: windows), and configures it first where
that is necessary. --configure-only configures in any case and compiles nothing. Uses ccache where it is installed.
TEXT
}

configure_only=no
case ${1:-} in
  -h | --help) usage; exit 0 ;;
  --configure-only) configure_only=yes; shift ;;
  -*) usage >&2; exit 2 ;;
esac
preset=${1:-windows}
(($# == 0)) || shift
cd "$(dirname "$0")/.."

options=()
if command -v ccache >/dev/null; then
  options+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  # Without this it does not keep what is compiled with precompiled headers.
  export CCACHE_SLOPPINESS=${CCACHE_SLOPPINESS:-pch_defines,time_macros}
fi
# A build configures again by itself when a file of CMake's has changed. Without need it must not: while CMake writes
# the lists of tests, a ctest that reads them at the same time fails.
ninja=build/$preset/build.ninja
if [[ $configure_only == yes || ! -e $ninja || CMakePresets.json -nt $ninja ]]; then
  cmake --preset "$preset" "${options[@]}"
fi
[[ $configure_only == yes ]] && exit 0

targets=()
(($# == 0)) || targets=(--target "$@")
cmake --build --preset "$preset" "${targets[@]}"
