#!/usr/bin/env bash
# Starts and stops the real service, and connects to it, again and again.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/cycles.sh [--cycles N] [--connects N]

Works under Wine, in a fresh prefix of its own (build/wine/cycles). Starts and stops the real service N times (default:
1000), each time with a message that every later start must find. Then four clients connect to a running service at the
same time, N connections in all (default: 10000); afterwards it must have as many handles and threads as before.

A cycle takes about a second and a half. The last line is the summary.

Exit code: 0 when everything was correct; 1 otherwise, with the failures; 2 for a wrong option or a failed build.
TEXT
}

cycles=1000 connects=10000
# shellcheck source=scripts/options.sh
. "$(dirname "$0")/options.sh"
number_options "cycles:6 connects:6" "$@"
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/endurance.sh" "$@"
endurance_begin cycles endurance_tests

echo "== $cycles starts and stops, $connects connections"
status=0
TAMLOG_CYCLES=$cycles TAMLOG_CONNECTS=$connects endurance_run run $((600 + cycles * 10 + connects)) endurance_tests.exe \
  '--gtest_filter=Cycles.*' || status=1
echo "$(sed -n 's/^cycles: //p' build/cycles/run.log); $(sed -n 's/^connects: //p' build/cycles/run.log)"
exit "$status"
