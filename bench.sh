#!/usr/bin/env bash
# Builds what the benchmarks measure, installs the peers, and runs the scenarios.
set -euo pipefail

case ${1:-} in
  -h | --help)
    cat <<'TEXT'
usage: ./bench.sh [--pairs N] [--json FILE] [NAME...]

Measures the project's programs against a floor or a peer (journalctl, grep, bare copies and calls), each pair in turns
and in one run, and prints machine, medians, spread and ratio: smaller is better. Without NAME all scenarios run: show,
store. Installs what is missing from Debian's packages and builds first. Leave the machine alone meanwhile. Inputs are
kept in build/bench.

Exit code: 0 when every goal is met, 1 when one is missed.
TEXT
    exit 0
    ;;
esac
cd "$(dirname "$0")"
mkdir -p build/bench
scripts/install-packages.sh bench
scripts/build.sh linux >build/bench/build.log 2>&1 || { tail -n 40 build/bench/build.log >&2; exit 2; }
scripts/build.sh windows store_bench >>build/bench/build.log 2>&1 || { tail -n 40 build/bench/build.log >&2; exit 2; }

# A Wine prefix of its own, its server on the processor that everything is measured on.
TAMLOG_BENCH_PREFIX=$(scripts/wine-prefix.sh bench)
export TAMLOG_BENCH_PREFIX
(
  # shellcheck source=scripts/wine-env.sh
  . scripts/wine-env.sh "$TAMLOG_BENCH_PREFIX"
  taskset -c 0 bash -c '. scripts/wine-env.sh "$1"; wine_server_start' start "$TAMLOG_BENCH_PREFIX"
)
stop_wine() {
  # shellcheck source=scripts/wine-env.sh
  (. scripts/wine-env.sh "$TAMLOG_BENCH_PREFIX"; wine_server_stop)
}
trap stop_wine EXIT
python3 bench/run.py "$@"
