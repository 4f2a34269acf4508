#!/usr/bin/env bash
# Judges copies that readers make without access while the server's store writes.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/judge-reading.sh [--copies N]

Builds, makes a Wine prefix of its own (build/wine/judge), and lets disturbed readers copy logs of 200, 5,000, 50,000 and
1,000,000 slots while the server's store changes them as fast as it can. Each copy that a reader accepts has to be one
state of the log. Needs 3 GB of memory.

  --copies N   number of accepted copies of the smallest ring (default 850000, which makes more than a million in all)

Keeps the output in build/judge. The last lines are a table with one row for each ring.

Exit code: 0 when no accepted copy was wrong, 1 otherwise, 2 for a wrong option or a failed build.
TEXT
}

copies=850000
# shellcheck source=scripts/options.sh
. "$(dirname "$0")/options.sh"
number_options "copies:9" "$@"
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/endurance.sh" "$@"
endurance_begin judge client_live_judge_tests

status=0
TAMLOG_READING_COPIES=$copies endurance_run run $((1200 + copies / 200)) client_live_judge_tests.exe \
  '--gtest_filter=Rings*' || status=1
echo "| slots | states written | snapshots | retries | in parts | newest 100 | retries | in place | retries |\
 not copied in time | longest | wrong |"
echo '|---|---|---|---|---|---|---|---|---|---|---|---|'
grep '^| ' build/judge/run.log || echo 'no table: the run ended early'
exit "$status"
