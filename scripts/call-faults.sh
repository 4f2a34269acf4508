#!/usr/bin/env bash
# Lets every call into the system and every touch of the mapped view fail, and prints how many were failed.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/call-faults.sh [--default]

Builds and runs the tests in which each call that the server's own code makes into the system fails once (the nth call
of each operation, n = 1, 2, 3 ... until the operation gets through), and those in which each touch of the mapped log
file meets a real fault of the processor. Then counts the call sites of the server's libraries and compares them with
those that have been failed; scripts/call-sites-not-failed.txt lists the exceptions with their reasons.

By default every call of every operation fails, which takes some minutes; --default fails as many as ./test.sh does,
which leaves out some call sites.

The last lines are the account. Exit code: 0 when every test passed and every call site is failed or excepted (with
--default: when every test passed), 1 otherwise, 2 for a wrong option or a build that fails.
TEXT
}

all=1
case ${1:-} in
  -h | --help) usage; exit 0 ;;
  --default) all= ;;
  '') ;;
  *) usage >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."

sweeps=(util_call_sweep_tests store_call_sweep_tests pipe_call_sweep_tests server_call_sweep_tests)
out=$PWD/build/call-faults
mkdir -p "$out"
rm -f "$out"/*
scripts/install-packages.sh run
scripts/build.sh windows TamLogServer tamlog store_fault_tests "${sweeps[@]}" >"$out/build.log" 2>&1 ||
  { tail -n 40 "$out/build.log" >&2; echo "call-faults.sh: the build failed, see $out/build.log" >&2; exit 2; }

prefix=$(scripts/wine-prefix.sh call-faults)
# shellcheck source=scripts/wine-env.sh
. scripts/wine-env.sh "$prefix"
wine_server_start
trap wine_server_stop EXIT

sites=$out/sites.txt
: >"$sites"
export TAMLOG_CALL_SITES="Z:${sites//\//\\}" TAMLOG_SWEEP_ALL=$all TAMLOG_SWEEP_TRACE=1

failed=0
for test in "${sweeps[@]}"; do
  timeout 1800 setarch -R "$wine64" "build/bin/$test.exe" >"$out/$test.log" 2>&1 </dev/null ||
    { failed=1; echo "$test failed, see $out/$test.log"; }
done
timeout 600 setarch -R "$wine64" build/bin/store_fault_tests.exe \
  '--gtest_filter=*EveryTouch*:PageFaults*' >"$out/page_faults.log" 2>&1 </dev/null ||
  { failed=1; echo "store_fault_tests failed, see $out/page_faults.log"; }

rounds=$(cat "$out"/*_call_sweep_tests.log | grep -c '^call [0-9]*: [A-Za-z_]' || true)
touches=$(tr -d '\r' <"$out/page_faults.log" | awk '/EveryTouch.IsRepeatedAfterOne/ { one = 1 }
  /EveryTouch.IsRepeatedAfterNine/ { one = 0 } one && /^touches: / { sum += $2 } END { print sum + 0 }')
python3 scripts/call-sites.py "$sites" scripts/call-sites-not-failed.txt || [[ -z $all ]] || failed=1
echo "operations run with a failing call: $rounds"
echo "mapped touches failed at the 1st, the 9th and the 10th attempt, and for good: $touches"
exit "$failed"
