#!/usr/bin/env bash
# Kills and suspends readers of the log repeatedly under load, and reports what the server noticed.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/kill-readers.sh [--kills N] [--suspensions N] [--seconds N]

Builds, makes a Wine prefix of its own (build/wine/readers) and runs the log server there as a service under load: a
client that submits messages without pause, some of them late. Meanwhile readers of every kind (tamlogctl's verbs that
read the log, and programs that use the library) are killed at random moments, four at a time; then readers are
suspended, twenty at a time. A watcher looks each millisecond at how the server writes, and checks that

  - the server's longest flush, and its longest time between two, are as without readers,
  - no reader is ever counted inside the log.

  --kills N         number of kills (default 1000, some 0.3 s each)
  --suspensions N   number of readers suspended (default 100)
  --seconds N       duration of a suspension (default 10)

Keeps the logs in build/readers. The last lines are the summary.

Exit code: 0 when the server noticed nothing, 1 otherwise, 2 for a wrong option or a failed build.
TEXT
}

kills=1000 suspensions=100 seconds=10
# shellcheck source=scripts/options.sh
. "$(dirname "$0")/options.sh"
number_options "kills:5 suspensions:5 seconds:5" "$@"
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/endurance.sh" "$@"
endurance_begin readers administration_tests

export TAMLOG_READER_KILLS=$kills TAMLOG_SUSPENSIONS=$suspensions TAMLOG_SUSPENDED_MS=$((seconds * 1000))
status=0
endurance_run run $((600 + kills * 5 + suspensions * (seconds + 10))) administration_tests.exe \
  '--gtest_filter=KilledReaders.*' || status=1
sed -n 's/^note: //p; /^readers: /p' build/readers/run.log
exit "$status"
