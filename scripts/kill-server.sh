#!/usr/bin/env bash
# Kills the server's process again and again under load, and says what that cost.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/kill-server.sh [--kills N] [--clients N]

Builds, makes a Wine prefix of its own (build/wine/kills) and runs the log server there as a service under load: clients
that hand in messages, a driver that delivers hundreds a tick. Its process is killed at random moments: anywhere, while
it writes the file, while it starts, while it restarts for new settings, and with a program that follows the log. Each
time the file is judged as the server will judge it, the service is started again, and

  - the file has to be kept exactly when it keeps the rules, and to be emptied otherwise,
  - what was taken more than two flushes before the kill has to be in the file.

After that clients are killed: between their two opens, inside a request, before a reply, at random moments.

  --kills N     how often the server is killed (default 200, some 1.5 s each)
  --clients N   how many clients are killed at random moments (default 200)

The logs are kept in build/kills. The last lines are the account, of the clients and then of the server.

Exit code: 0 when every kill ended as it has to, 1 otherwise, 2 for a wrong option or a build that fails.
TEXT
}

kills=200 clients=200
arguments=("$@")
whole_number() {
  [[ ${2:-} =~ ^[1-9][0-9]{0,4}$ ]] ||
    { echo "kill-server.sh: $1 wants a whole number from 1 on, not \"${2:-}\"" >&2; exit 2; }
}
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --kills) whole_number "$1" "${2:-}"; kills=$2; shift 2 ;;
    --clients) whole_number "$1" "${2:-}"; clients=$2; shift 2 ;;
    *) echo "kill-server.sh: there is no option \"$1\"; --help lists them" >&2; exit 2 ;;
  esac
done
# shellcheck source=scripts/fixed-layout.sh
. "$(dirname "$0")/fixed-layout.sh" "${arguments[@]}"
cd "$(dirname "$0")/.."
root=$PWD
# shellcheck source=scripts/endurance.sh
. scripts/endurance.sh
endurance_begin kills kill_server_tests administration_tests

# run_tests NAME KILLS PROGRAM FILTER: prints what the test noted.
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
