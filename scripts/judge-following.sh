#!/usr/bin/env bash
# Judges the follower of the log over random histories.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/judge-following.sh [--seeds N] [--first SEED]

Builds the judge of tests/client/log natively and optimized (preset judge, into build/judge-following) and lets it run
random histories of each kind: late messages, bursts, clears, restarts, resumes from a memory, equal messages. A model of
the writer knows the truth at each visit. A message returned twice, one not returned, a loss without a report, a count
that does not hold the truth and a wrong "late" are failures.

  --seeds N      number of histories of each kind (default 3000: about 3 minutes of one processor)
  --first SEED   seed of the first one (default 1): another number makes other histories

Keeps the output in build/judge-following/run.log: a failure is there with its seed and its history in words. The last
lines are a table with one row for each kind; docs/reliability.md, "Following", explains it.

Exit code: 0 without failures, 1 otherwise, 2 for a wrong option or a failed build.
TEXT
}

seeds=3000
first=1
# shellcheck source=scripts/options.sh
. "$(dirname "$0")/options.sh"
number_options "seeds:7 first:9" "$@"
cd "$(dirname "$0")/.."
folder=build/judge-following
mkdir -p "$folder"
if ! scripts/build.sh judge follower_histories_tests >"$folder/build.log" 2>&1; then
  tail -20 "$folder/build.log" >&2
  exit 2
fi

status=0
# One kind is one test, which the watchdog would end.
TAMLOG_TEST_LIMIT=$((300 + seeds / 5)) TAMLOG_HISTORY_SEEDS=$seeds TAMLOG_HISTORY_FIRST=$first \
  "$folder/tests/client/log/follower_histories_tests" >"$folder/run.log" 2>&1 || status=1
grep -E -A40 'Failure$' "$folder/run.log" | cut -c1-400 || true
echo '| kind | histories | visits | returned | lost | exact | possible | without bound | needless | unwritten |'
echo '|---|---|---|---|---|---|---|---|---|---|'
grep '^| ' "$folder/run.log" || echo 'no table: the run ended early'
exit "$status"
