#!/usr/bin/env bash
# Builds everything, runs every check and every test, and ends with ctest's summary and its exit code.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./test.sh [--verbose] [--fuzz-seconds N] [STEP...]

Runs all steps, or only those named (a test or check finds what earlier builds left). A failing step does not keep
the others from running, as far as they can. Logs are kept in build/test.

  packages        install what is missing from Debian's packages
  configure       configure the presets windows, asan and tsan
  rooms           check every include against the table of who may use whom
  format          check the format of every file
  build-windows   build everything for Windows
  build-asan      build the pure files and their tests natively, under AddressSanitizer and UBSan
  build-tsan      the same under ThreadSanitizer
  tidy            clang-tidy, with clang's analysis of the lock annotations
  prefixes        make fresh Wine prefixes for the tests
  test-unit       run the Windows tests of the rooms under Wine
  test-system     run the Windows tests with the real service manager, each in a prefix of its own
  soak            a minute of ./soak.sh: everything at once on the real service
  test-asan       run the native tests under AddressSanitizer and UBSan
  test-tsan       run the native tests under ThreadSanitizer
  fuzz            build the fuzz targets and run each for a minute, or N seconds

build-asan to tidy and fuzz run beside the tests under Wine, on time that these leave.
TEXT
}

readonly all_steps=(packages configure rooms format build-windows build-asan build-tsan
  tidy fuzz prefixes test-unit test-system soak test-asan test-tsan)
cores=$(nproc)
# Prefixes that a test gets for itself: pipes, registry, services and driver have fixed names. These tests mostly wait,
# so there may be more of them than cores. CMakeLists.txt names them to ctest.
readonly exclusive_prefixes=(alone1 alone2 alone3)

verbose=no fuzz_seconds=60
wanted=()
arguments=("$@")
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --verbose) verbose=yes ;;
    --fuzz-seconds)
      [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || { usage >&2; exit 2; }
      fuzz_seconds=$2
      shift
      ;;
    *)
      [[ " ${all_steps[*]} " == *" $1 "* ]] || { usage >&2; exit 2; }
      wanted+=("$1")
      ;;
  esac
  shift
done
((${#wanted[@]} > 0)) || wanted=("${all_steps[@]}")
# shellcheck source=scripts/fixed-layout.sh
. "$(dirname "$0")/scripts/fixed-layout.sh" "${arguments[@]}"
cd "$(dirname "$0")"
readonly root=$PWD
readonly logs=$root/build/test
mkdir -p "$logs"

exec 8>"$logs/.lock"
flock --nonblock 8 || { echo "test.sh: another test.sh is at work in this tree" >&2; exit 1; }

started=$SECONDS
failed_steps=()
declare -A beside_process=() beside_started=()
ctest_status=0
ctest_steps=()

is_wanted() { [[ " ${wanted[*]} " == *" $1 "* ]]; }
has_failed() { [[ " ${failed_steps[*]} " == *" $1 "* ]]; }

on_exit() {
  local status=$?
  trap '' INT TERM HUP PIPE
  trap - EXIT
  for name in "${!beside_process[@]}"; do kill -TERM -- "-${beside_process[$name]}" 2>/dev/null || true; done
  for name in unit soak "${exclusive_prefixes[@]}"; do
    if [[ -d build/wine/$name ]]; then scripts/wine-stop.sh "$name" || status=1; fi
  done
  exit "$status"
}
trap on_exit EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# --- Running steps. Nothing they start may inherit the lock.

report() {
  local name=$1 status=$2 seconds=$3
  if [[ $status -eq 0 ]]; then
    printf '   %-14s ok, %d s\n' "$name" "$seconds"
  else
    failed_steps+=("$name")
    printf '   %-14s FAILED, %d s; the end of build/test/%s.log:\n' "$name" "$seconds" "$name"
    tail -n 60 "$logs/$name.log" | sed 's/^/   | /'
  fi
}

# step NAME WHAT-IT-DOES COMMAND...
step() {
  local name=$1 purpose=$2 begun=$SECONDS status=0
  shift 2
  is_wanted "$name" || return 0
  printf '== %-14s %s\n' "$name" "$purpose"
  if [[ $verbose == yes ]]; then
    { "$@" 2>&1 8>&- | tee "$logs/$name.log"; } || status=$?
  else
    "$@" >"$logs/$name.log" 2>&1 8>&- || status=$?
  fi
  report "$name" "$status" $((SECONDS - begun))
  last_status=$status
}

# A step that cannot run because an earlier one failed has failed too.
step_after() {
  local needed=$1 name=$2
  shift
  if is_wanted "$name" && has_failed "$needed"; then
    printf '== %-14s not run, because %s failed\n' "$name" "$needed"
    failed_steps+=("$name")
    return 0
  fi
  step "$@"
}

configure_all() {
  local preset
  for preset in windows asan tsan; do scripts/build.sh --configure-only "$preset" || return 1; done
}

check_rooms() { scripts/check-rooms.py --self-test && scripts/check-rooms.py; }

make_prefixes() {
  local name
  rm -rf build/bin/test_* # what tests that were killed left behind
  for name in unit "${exclusive_prefixes[@]}"; do scripts/wine-prefix.sh "$name" || return 1; done
}

# Takes only what nothing else wants of the processor, so that tests with time limits do not starve. The kernel shares
# time out between sessions first, and between their processes then: in a session of its own, being idle alone would
# still get half of the machine.
yield_processor() {
  { echo 19 >/proc/self/autogroup; } 2>/dev/null || true
  exec chrt --idle 0 "$@"
}
export -f yield_processor

# start_beside NAME WHAT-IT-DOES COMMAND...: a step that needs configured builds.
start_beside() {
  local name=$1
  is_wanted "$name" || return 0
  if has_failed configure; then
    printf '== %-14s not run, because configure failed\n' "$name"
    failed_steps+=("$name")
    return 0
  fi
  printf '== %-14s %s, beside the following steps\n' "$name" "$2"
  shift 2
  beside_started[$name]=$SECONDS
  # shellcheck disable=SC2016
  setsid bash -c 'yield_processor "$@"' beside "$@" >"$logs/$name.log" 2>&1 8>&- </dev/null &
  beside_process[$name]=$!
}

finish_beside() {
  local name=$1 status=0
  [[ -n ${beside_process[$name]:-} ]] || return 0
  printf '== %-14s waiting for its end\n' "$name"
  wait "${beside_process[$name]}" || status=$?
  unset "beside_process[$name]"
  report "$name" "$status" $((SECONDS - beside_started[$name]))
}

# --- Tests.

# At the end of each program ThreadSanitizer waits for late races, a second unless told otherwise; every test is one.
run_natively() {
  UBSAN_OPTIONS=print_stacktrace=1 TSAN_OPTIONS='halt_on_error=1 atexit_sleep_ms=50' \
    ctest --test-dir "build/$1" --output-on-failure -j "$cores"
}

# with_prefix NAME COMMAND...
with_prefix() {
  (
    # shellcheck source=scripts/wine-env.sh
    . scripts/wine-env.sh "$root/build/wine/$1"
    shift
    "$@"
  )
}

# run_under_wine CTEST-ARGUMENTS...
run_under_wine() {
  local name status=0
  for name in unit "${exclusive_prefixes[@]}"; do
    with_prefix "$name" wine_server_start || { echo "Wine's server does not start in $name" >&2; return 1; }
  done
  ctest --test-dir build/windows --output-on-failure "$@" || status=$?
  for name in unit "${exclusive_prefixes[@]}"; do with_prefix "$name" wine_server_stop || status=1; done
  return "$status"
}

# test_step NEEDED NAME PURPOSE COMMAND...: a step whose log ends with ctest's summary.
test_step() {
  last_status=0
  step_after "$@"
  is_wanted "$2" || return 0
  if has_failed "$2" && ((last_status == 0)); then return 0; fi
  ctest_steps+=("$2")
  ((last_status == 0)) || ctest_status=$last_status
}

# The output of each failed test once more, where whoever looks at the end finds it.
print_failures() {
  awk '/^[0-9 ]*\/[0-9]+ Test .*\*\*\*/ { on = 1; lines = 0 } /^ *Start |^[0-9 ]*\/[0-9]+ Test .* Passed/ { on = 0 }
       on && lines++ < 60' "$1"
}

print_summaries() {
  local name
  for name in "${ctest_steps[@]}"; do
    echo
    echo "$name:"
    print_failures "$logs/$name.log"
    sed -n '/tests passed, .* failed out of\|^No tests were found/,$p' "$logs/$name.log"
  done
}

last_status=0
step packages 'installing what is missing from Debian'"'"'s packages' scripts/install-packages.sh test
if has_failed packages; then exit 1; fi
step configure 'configuring the presets windows, asan and tsan' configure_all
step rooms 'checking every include against the table of who may use whom' check_rooms
step format 'checking the format of every file' scripts/check-format.sh
step_after configure build-windows 'building everything for Windows' scripts/build.sh windows
# The tests under Wine mostly wait: what is left of the processor meanwhile builds and checks the rest.
start_beside build-asan 'building the pure files natively, AddressSanitizer and UBSan' scripts/build.sh asan
start_beside build-tsan 'building the pure files natively, ThreadSanitizer' scripts/build.sh tsan
start_beside tidy "clang-tidy, with clang's thread-safety analysis" scripts/check-tidy.py -j 1
start_beside fuzz "building the fuzz targets and running each for $fuzz_seconds s" ./fuzz.sh --seconds "$fuzz_seconds" --native
step prefixes 'making fresh Wine prefixes' make_prefixes
test_step build-windows test-unit 'tests of the rooms under Wine' run_under_wine -LE system -j "$cores"
# How long the running service is fuzzed over its pipes.
export TAMLOG_FUZZ_SECONDS=$fuzz_seconds
test_step build-windows test-system 'tests with the real service manager under Wine' run_under_wine -L system -j "${#exclusive_prefixes[@]}"
step_after build-windows soak 'a minute of everything at once on the real service' ./soak.sh --minutes 1
if is_wanted soak && ! has_failed soak; then tail -n 1 "$logs/soak.log" | sed 's/^/   /'; fi
finish_beside build-asan
test_step build-asan test-asan 'native tests, AddressSanitizer and UBSan' run_natively asan
finish_beside build-tsan
test_step build-tsan test-tsan 'native tests, ThreadSanitizer' run_natively tsan
finish_beside tidy
finish_beside fuzz

echo
printf 'All steps took %d s.\n' $((SECONDS - started))
print_summaries
if ((${#failed_steps[@]} > 0)); then
  echo
  echo "FAILED: ${failed_steps[*]}"
fi
if ((ctest_status != 0)); then exit "$ctest_status"; fi
((${#failed_steps[@]} == 0)) || exit 1
