#!/usr/bin/env bash
# Fails every call into the system and every touch of the mapped view, and prints the number of failed ones.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/call-faults.sh [--default]

Builds and runs the tests in which each call that the server's own code makes into the system fails once (the nth call
of each operation, n = 1, 2, 3 ... until the operation completes), and those in which each touch of the mapped log file
meets a real fault of the processor. Then counts the call sites of the server's libraries and compares them with the
failed ones; scripts/call-sites-not-failed.txt lists the exceptions with their reasons.

By default every call of every operation fails, which takes some minutes. --default fails as many as ./test.sh does,
which omits some call sites.

The last lines are the summary. Exit code: 0 when every test passed and every call site is failed or excepted (with
--default: when every test passed), 1 otherwise, 2 for a wrong option or a failed build.
TEXT
}

all=1
case ${1:-} in
  -h | --help) usage; exit 0 ;;
  --default) all= ;;
  '') ;;
  *) usage >&2; exit 2 ;;
esac
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/endurance.sh" "$@"

sweeps=(util_call_sweep_tests store_call_sweep_tests pipe_call_sweep_tests server_call_sweep_tests)
out=$root/build/call-faults
endurance_begin call-faults TamLogServer tamlog store_fault_tests "${sweeps[@]}"

sites=$out/sites.txt
: >"$sites"
export TAMLOG_CALL_SITES="Z:${sites//\//\\}" TAMLOG_SWEEP_ALL=$all TAMLOG_SWEEP_TRACE=1

failed=0
for test in "${sweeps[@]}"; do
  endurance_run "$test" 1800 "$test.exe" || failed=1
done
endurance_run page_faults 600 store_fault_tests.exe '--gtest_filter=*EveryTouch*:PageFaults*' || failed=1

rounds=$(cat "$out"/*_call_sweep_tests.log | grep -c '^call [0-9]*: [A-Za-z_]' || true)
touches=$(awk '/EveryTouch.IsRepeatedAfterOne/ { one = 1 }
  /EveryTouch.IsRepeatedAfterNine/ { one = 0 } one && /^touches: / { sum += $2 } END { print sum + 0 }' "$out/page_faults.log")
python3 scripts/call-sites.py "$sites" scripts/call-sites-not-failed.txt || [[ -z $all ]] || failed=1
echo "operations run with a failing call: $rounds"
echo "mapped touches failed at the 1st, the 9th and the 10th attempt, and for good: $touches"
exit "$failed"
