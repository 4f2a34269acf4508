#!/usr/bin/env bash
# Builds the fuzz targets and runs each of them for some time.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./fuzz.sh [--seconds N] [--seed N] [--native | TARGET...]

Feeds random bytes, grown from fuzz/corpus/TARGET, to every parser of foreign bytes, under AddressSanitizer and UBSan.
Runs all targets without TARGET, 60 seconds each, or N. --native omits the target pipe, which needs Wine. Prints the
seed of the random numbers; --seed repeats a run with the same seed and the same grown inputs.

  the server:  image     a log file at the server's start: check, compaction, loading, flushes, a header that other
                         processes overwrite
               requests  requests of clients, between ticks, driver messages, restarts and stops
               registry  the settings in the registry
               driver    messages of the driver, and the filters
               transport messages of any length in a request pipe
               pipe      the running service under Wine: random lengths, codes, pauses, half-open connections; it must
                         live, serve others, and end with as many handles and threads as before
  the client:  log_file  a copied log file: checker and repair
               lost_bytes a log that lost and gained bytes: what no change touched is saved
               integrity the same file, judged by the server's rules and by the client's
               compressed gzip and xz data
               times     times as users type them
               follower  snapshots with any header and any numbers, one after the other
               cursor, tsv, expression

Keeps interesting inputs in build/fuzz/grown, where the next run begins. The last line is the summary; after it, each
finding follows with the end of its log and, up to 8 KiB, the input as base64.

Exit code: 0 without a finding; 1 otherwise, with the path of a file that reproduces the finding; 2 for a wrong option
or a failed build.
TEXT
}

# shellcheck source=scripts/options.sh
. "$(dirname "$0")/scripts/options.sh"
seconds=60 seed='' native_only=no
targets=()
arguments=("$@")
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --seconds) whole_number "$1" "${2:-}"; seconds=$2; shift ;;
    --seed) whole_number "$1" "${2:-}" 9; seed=$2; shift ;;
    --native) native_only=yes ;;
    -*) echo "fuzz.sh: unknown option '$1'; see ./fuzz.sh --help" >&2; exit 2 ;;
    *) targets+=("$1") ;;
  esac
  shift
done
: "${seed:=$((RANDOM * 30000 + RANDOM % 30000 + 1))}"
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/scripts/endurance.sh" "${arguments[@]}"

built=()
mkdir -p build/fuzz
scripts/install-packages.sh fuzz
scripts/build.sh fuzz >build/fuzz/build.log 2>&1 || { tail -n 40 build/fuzz/build.log >&2; exit 2; }
for program in build/fuzz/fuzz/fuzz_*; do
  [[ -x $program && -f $program ]] && built+=("${program##*/fuzz_}")
done
[[ $native_only == yes ]] || built+=(pipe)
((${#targets[@]} > 0)) || targets=("${built[@]}")
for target in "${targets[@]}"; do
  if [[ " ${built[*]} " != *" $target "* ]]; then
    echo "fuzz.sh: unknown target '$target'; targets are ${built[*]}" >&2
    exit 2
  fi
done

# Runs in a shell of its own, whose end also ends Wine's processes.
fuzz_pipe() (
  endurance_begin fuzz-pipe endurance_tests
  TAMLOG_FUZZ_SECONDS=$seconds TAMLOG_FUZZ_SEED=$seed endurance_run run $((seconds + 300)) endurance_tests.exe \
    '--gtest_filter=PipeFuzz.*' || exit 1
  sed -n 's/^pipe: /   /p' build/fuzz-pipe/run.log
)

# Runs a command so that a signal to this script alone ends the command too.
child=
end_child() {
  [[ -z $child ]] || kill -TERM "$child" 2>/dev/null || true
  wait
  exit "$1"
}
trap 'end_child 130' INT
trap 'end_child 143' TERM HUP
heedful() {
  local status=0
  "$@" &
  child=$!
  wait "$child" || status=$?
  child=
  return "$status"
}

# show_finding TARGET LOG: the end of the log, and the input unless it is large. A log of this script that is cut at its
# beginning still has both.
show_finding() {
  local target=$1 log=$2 unit size
  echo "== finding of $target; run: ./fuzz.sh --seconds $seconds --seed $seed $target"
  tail -n 15 "$log"
  unit=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
  [[ -f $unit ]] || return 0
  size=$(stat -c %s "$unit")
  echo "input: $unit, $size bytes; run: build/fuzz/fuzz/fuzz_$target $unit"
  ((size > 8192)) || echo "base64: $(base64 -w 0 "$unit")"
}

inputs=0 found_in=() account=''
add_to_account() {
  inputs=$((inputs + ${2:-0}))
  account+="${account:+, }$1 ${2:-0}"
}

echo "seed $seed"
for target in "${targets[@]}"; do
  if [[ $target == pipe ]]; then
    echo "== pipe, $seconds s"
    status=0
    heedful fuzz_pipe || status=$?
    ((status != 2)) || exit 2
    ((status == 0)) || found_in+=("pipe build/fuzz-pipe/run.log")
    add_to_account pipe "$(sed -n 's/^pipe: .* \([0-9]*\) requests.*/\1/p' build/fuzz-pipe/run.log)"
    continue
  fi
  grown=build/fuzz/grown/$target
  found=build/fuzz/findings/$target
  mkdir -p "$grown" "$found"
  echo "== $target, $seconds s"
  log=build/fuzz/$target.log
  # The limit for one input is long: on a busy machine an input may wait.
  if ! heedful "build/fuzz/fuzz/fuzz_$target" -seed="$seed" -max_total_time="$seconds" -max_len=8192 -timeout=300 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$found/" "$grown" "fuzz/corpus/$target" >"$log" 2>&1; then
    found_in+=("$target $log")
    echo "fuzz.sh: $target: finding; see the end" >&2
  fi
  add_to_account "$target" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")"
done
echo "fuzz: ${#targets[@]} targets, $seconds s each, seed $seed, $inputs inputs, ${#found_in[@]} findings ($account)"
for finding in "${found_in[@]}"; do
  # shellcheck disable=SC2086
  show_finding $finding
done
((${#found_in[@]} == 0)) || exit 1
