#!/usr/bin/env bash
# Builds everything, runs every check and every test, and ends with ctest's summary and exit code.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./test.sh [--quick] [--verbose] [--fuzz-seconds N] [STEP...]

Runs all steps, or only those named (a test or check uses the results of earlier builds). If a step fails, the others
still run as far as possible. Logs are kept in build/test. All steps take about 25 minutes on two cores.

  packages        install the packages that the builds need
  more-packages   install the other packages, while the Windows build runs
  configure       configure the presets windows, asan and tsan
  rooms           check every include against the table of allowed uses between rooms
  format          check the format of every file
  build-windows   build everything for Windows
  build-asan      build the portable files and their tests natively, under AddressSanitizer and UBSan
  build-tsan      the same under ThreadSanitizer
  tidy            clang-tidy, with clang's analysis of the lock annotations
  prefixes        create new Wine prefixes for the tests
  test-windows    run the tests under Wine: those of the rooms, and those with the real service manager, each of which
                  has a prefix of its own
  soak            a minute of ./soak.sh: everything at once on the real service
  test-asan       run the native tests under AddressSanitizer and UBSan
  test-tsan       run the native tests under ThreadSanitizer
  fuzz            build the fuzz targets and run each for 20 seconds, or N; ./fuzz.sh runs each for a minute
  clang           compile everything with clang, too, for Windows and natively
  make-packages   make the packages of a release (./package.sh)
  test-packages   install, upgrade and remove them under Wine (packaging/test.sh --quick)

build-asan to tidy, fuzz, clang and make-packages use the processor time that the tests under Wine leave. Two more
steps do parts of test-windows: test-unit runs the tests of the rooms only, test-system the others only.

  --quick         for a small change, under four minutes: packages, configure, rooms, format, build-windows, build-asan,
                  prefixes, test-unit and test-asan
TEXT
}

readonly all_steps=(packages more-packages configure rooms format build-windows build-asan build-tsan
  tidy fuzz clang make-packages prefixes test-windows soak test-asan test-tsan test-packages)
readonly quick_steps=(packages more-packages configure rooms format build-windows build-asan prefixes test-unit
  test-asan)
cores=$(nproc)

verbose=no fuzz_seconds=20
wanted=()
arguments=("$@")
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --verbose) verbose=yes ;;
    --quick) wanted+=("${quick_steps[@]}") ;;
    --fuzz-seconds)
      [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || { usage >&2; exit 2; }
      fuzz_seconds=$2
      shift
      ;;
    *)
      [[ " ${all_steps[*]} test-unit test-system " == *" $1 "* ]] || { usage >&2; exit 2; }
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
# Prefixes that a test uses exclusively, because pipes, registry, services and driver have fixed names. These tests
# mostly wait, so there may be more of them than cores.
mapfile -t exclusive_prefixes < <(grep -o 'alone[0-9]*' CMakeLists.txt)
readonly exclusive_prefixes
readonly logs=$root/build/test
mkdir -p "$logs"

exec 8>"$logs/.lock"
flock --nonblock 8 || { echo "test.sh: another test.sh is running in this tree" >&2; exit 1; }

for name in "${wanted[@]}"; do rm -f "$logs/$name.log"; done
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
  for name in unit soak packages "${exclusive_prefixes[@]}"; do
    if [[ -d build/wine/$name ]]; then scripts/wine-stop.sh "$name" || status=1; fi
  done
  exit "$status"
}
trap on_exit EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# --- Running steps. No process that they start may inherit the lock.

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

# step NAME PURPOSE COMMAND...
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

# A step that cannot run because an earlier step failed counts as failed.
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
  rm -rf build/bin/test_* # left by killed tests
  for name in unit "${exclusive_prefixes[@]}"; do scripts/wine-prefix.sh "$name" || return 1; done
}

# Uses only processor time that no other process needs, so that tests with time limits do not starve. The kernel divides
# time first between sessions and then between their processes: in a session of its own, the idle policy alone would
# still get half of the machine.
yield_processor() {
  { echo 19 >/proc/self/autogroup; } 2>/dev/null || true
  exec chrt --idle 0 "$@"
}
export -f yield_processor

# start_beside NAME PURPOSE COMMAND...: starts a step that runs while the following steps run.
start_beside() {
  local name=$1
  is_wanted "$name" || return 0
  printf '== %-14s %s, while the following steps run\n' "$name" "$2"
  shift 2
  beside_started[$name]=$SECONDS
  setsid "$@" >"$logs/$name.log" 2>&1 8>&- </dev/null &
  beside_process[$name]=$!
}

# start_yielding NAME PURPOSE COMMAND...: the same for a step that needs configured builds. The step uses only the
# processor time that no other process needs.
start_yielding() {
  local name=$1 purpose=$2
  shift 2
  if is_wanted "$name" && has_failed configure; then
    printf '== %-14s not run, because configure failed\n' "$name"
    failed_steps+=("$name")
    return 0
  fi
  # shellcheck disable=SC2016
  start_beside "$name" "$purpose" bash -c 'yield_processor "$@"' beside "$@"
}

# stop_yielding SESSION: gives a step the ordinary share of the processors when everything else waits for it. Otherwise
# it would not end beside work of others that never ends. A process started meanwhile inherits the old policy, hence two
# rounds.
stop_yielding() {
  local pid
  { echo 0 >"/proc/$1/autogroup"; } 2>/dev/null || true
  for _ in 1 2; do
    for pid in $(pgrep --session "$1"); do
      chrt --all-tasks --other --pid 0 "$pid" >/dev/null 2>&1 || true
    done
  done
}

finish_beside() {
  local name=$1 status=0
  [[ -n ${beside_process[$name]:-} ]] || return 0
  printf '== %-14s waiting for its end\n' "$name"
  stop_yielding "${beside_process[$name]}"
  wait "${beside_process[$name]}" || status=$?
  unset "beside_process[$name]"
  report "$name" "$status" $((SECONDS - beside_started[$name]))
}

# --- Tests.

run_natively() {
  ctest --preset "$1" -j "$cores"
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

# Repeats the output of each failed test at the end, where a user looks first.
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
    sed -n '/tests passed, .* failed out of\|^No tests were found/,$p' "$logs/$name.log" |
      sed '/^Label Time Summary/,/^$/d'
  done
}

# A log of an automatic run often shows only the end of the output, so the reasons are repeated there.
print_reasons() {
  local name
  for name in "${failed_steps[@]}"; do
    [[ " ${ctest_steps[*]} " != *" $name "* && -s $logs/$name.log ]] || continue
    printf '\nThe end of build/test/%s.log:\n' "$name"
    tail -n 30 "$logs/$name.log" | cut -c 1-1000 | sed 's/^/   | /'
  done
}

last_status=0
if [[ " ${wanted[*]} " == *' test-windows '* ]]; then
  echo 'The whole run takes about 25 minutes on two idle cores; ./test.sh --help lists its steps.'
fi
step packages 'installing the packages that the builds need' scripts/install-packages.sh build
if has_failed packages; then exit 1; fi
start_beside more-packages 'installing the other packages' scripts/install-packages.sh test
step configure 'configuring the presets windows, asan and tsan' configure_all
step rooms 'checking every include against the table of allowed uses between rooms' check_rooms
step_after configure build-windows 'building everything for Windows' scripts/build.sh windows
finish_beside more-packages
if has_failed more-packages; then exit 1; fi
# The tests under Wine mostly wait: the builds and checks below use the processor time that they leave.
start_yielding build-asan 'building the portable files natively, AddressSanitizer and UBSan' scripts/build.sh asan
start_yielding build-tsan 'building the portable files natively, ThreadSanitizer' scripts/build.sh tsan
start_yielding tidy "clang-tidy, with clang's thread-safety analysis" scripts/check-tidy.py -j 1
# With one seed, the same tree gives the same result in a fresh clone. Other seeds are for ./fuzz.sh itself.
start_yielding fuzz "building the fuzz targets and running each for $fuzz_seconds s" \
  ./fuzz.sh --seed 1 --seconds "$fuzz_seconds" --native
start_yielding clang 'compiling everything with clang' \
  bash -c 'scripts/build.sh windows-clang && scripts/build.sh clang'
start_yielding make-packages 'making the packages' ./package.sh --no-install
step format 'checking the format of every file' scripts/check-format.sh
step prefixes 'creating new Wine prefixes' make_prefixes
# The time in seconds for fuzzing the running service over its pipes.
export TAMLOG_FUZZ_SECONDS=$fuzz_seconds
test_step build-windows test-windows 'tests under Wine' run_under_wine -j "$((1 + ${#exclusive_prefixes[@]}))"
test_step build-windows test-unit 'tests of the rooms under Wine' run_under_wine -LE system -j "$cores"
test_step build-windows test-system 'tests with the real service manager under Wine' \
  run_under_wine -L system -j "${#exclusive_prefixes[@]}"
step_after build-windows soak 'a minute of everything at once on the real service' ./soak.sh --minutes 1
if is_wanted soak && ! has_failed soak; then tail -n 1 "$logs/soak.log" | sed 's/^/   /'; fi
finish_beside build-asan
test_step build-asan test-asan 'native tests, AddressSanitizer and UBSan' run_natively asan
finish_beside build-tsan
test_step build-tsan test-tsan 'native tests, ThreadSanitizer' run_natively tsan
finish_beside tidy
finish_beside clang
finish_beside make-packages
step_after make-packages test-packages 'installing, upgrading and removing the packages under Wine' \
  packaging/test.sh --quick
finish_beside fuzz

echo
printf 'All steps took %d s.\n' $((SECONDS - started))
print_summaries
if ((${#failed_steps[@]} > 0)); then
  print_reasons
  echo
  echo "FAILED: ${failed_steps[*]}"
fi
if ((ctest_status != 0)); then exit "$ctest_status"; fi
((${#failed_steps[@]} == 0)) || exit 1
