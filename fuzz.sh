#!/usr/bin/env bash
# Builds the fuzz targets and runs them for a while each.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./fuzz.sh [--seconds N] [TARGET...]

Feeds random bytes, grown from fuzz/corpus/TARGET, to what reads bytes of others: log files, cursors, lines of tsv.
Without TARGET every one runs, 60 seconds each, or N.

Exit code: 0 when nothing was found; 1 otherwise, with the path of a file that shows the finding again; 2 for a wrong
option or a build that fails.
TEXT
}

seconds=60
targets=()
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --seconds)
      [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || { usage >&2; exit 2; }
      seconds=$2
      shift
      ;;
    -*) usage >&2; exit 2 ;;
    *) targets+=("$1") ;;
  esac
  shift
done
cd "$(dirname "$0")"

built=()
mkdir -p build/fuzz
scripts/install-packages.sh fuzz
scripts/build.sh fuzz >build/fuzz/build.log 2>&1 || { tail -n 40 build/fuzz/build.log >&2; exit 2; }
for program in build/fuzz/fuzz/fuzz_*; do
  [[ -x $program && -f $program ]] && built+=("${program##*/fuzz_}")
done
((${#targets[@]} > 0)) || targets=("${built[@]}")

failed=0
for target in "${targets[@]}"; do
  program=build/fuzz/fuzz/fuzz_$target
  if [[ ! -x $program ]]; then
    echo "fuzz.sh: there is no target '$target'; targets are ${built[*]}" >&2
    exit 2
  fi
  grown=build/fuzz/grown/$target
  findings=build/fuzz/findings/$target
  mkdir -p "$grown" "$findings"
  echo "== $target, $seconds s"
  log=build/fuzz/$target.log
  if "$program" -max_total_time="$seconds" -max_len=8192 -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$findings/" "$grown" "fuzz/corpus/$target" >"$log" 2>&1; then
    grep -E 'number_of_executed_units|peak_rss' "$log" || true
  else
    failed=1
    tail -n 40 "$log" >&2
    echo "fuzz.sh: $target: found: $(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)" >&2
  fi
done
exit "$failed"
