#!/usr/bin/env bash
# Kills the server's process repeatedly under load, and reports the cost.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/kill-server.sh [--kills N] [--clients N]

Builds, makes a Wine prefix of its own (build/wine/kills) and runs the log server there as a service under load: clients
that submit messages, a driver that delivers hundreds a tick. Kills its process at random moments: anywhere, while it
writes the file, while it starts, while it restarts for new settings, and with a program that follows the log. After
each kill it judges the file as the server will, starts the service again, and checks that

  - the file is kept exactly when it keeps the rules, and emptied otherwise,
  - messages received more than two flushes before the kill are in the file.

Then kills clients: between their two opens, inside a request, before a reply, at random moments.

  --kills N     number of kills of the server (default 200, some 1.5 s each)
  --clients N   number of clients killed at random moments (default 200)

Keeps the logs in build/kills. The last lines are the summary, of the clients and then of the server.

Exit code: 0 when every kill ended correctly, 1 otherwise, 2 for a wrong option or a failed build.
TEXT
}

kills=200 clients=200
# shellcheck source=scripts/options.sh
. "$(dirname "$0")/options.sh"
number_options "kills:5 clients:5" "$@"
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/endurance.sh" "$@"
endurance_begin kills kill_server_tests administration_tests

# run_tests NAME KILLS PROGRAM FILTER: prints the test's notes and summaries.
run_tests() {
  local status=0
  TAMLOG_KILLS=$2 endurance_run "$1" $((600 + $2 * 15)) "$3" "--gtest_filter=$4" || status=1
  sed -n 's/^note: //p; /^clients: /p; /^kills: /p' "build/kills/$1.log"
  return "$status"
}

failed=0
run_tests clients "$clients" administration_tests.exe 'KilledPipeClients.*' || failed=1
run_tests kills "$kills" kill_server_tests.exe 'KilledServer.*' || failed=1
exit "$failed"
