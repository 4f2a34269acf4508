#!/usr/bin/env bash
# Installs the peers, builds the benchmarks, and runs the scenarios: ./bench.sh --help
set -euo pipefail

cd "$(dirname "$0")"
for argument in "$@"; do
  case $argument in
    -h | --help) exec python3 bench/run.py --help ;;
  esac
done
mkdir -p build/bench
scripts/install-packages.sh bench

build() {
  scripts/build.sh "$@" >>build/bench/build.log 2>&1 || { tail -n 40 build/bench/build.log >&2; exit 2; }
}
echo 'building (the first time takes minutes)'
: >build/bench/build.log
build linux tamlogctl make_log spdlog_bench lmdb_bench sqlite_bench journal_bench
build windows TamLogServer tamlogctl tamlog tamlogdrv store_bench open_bench append_bench read_bench \
  flush_guards_bench driver_drain_bench round_trips_bench spdlog_bench

# Uses a Wine prefix of its own. The scenarios start and stop its server (bench/wine.py).
TAMLOG_BENCH_PREFIX=$(scripts/wine-prefix.sh bench)
export TAMLOG_BENCH_PREFIX
stop_wine() {
  # shellcheck source=scripts/wine-env.sh
  (. scripts/wine-env.sh "$TAMLOG_BENCH_PREFIX"; wine_server_stop)
}
trap stop_wine EXIT
python3 bench/run.py "$@"
