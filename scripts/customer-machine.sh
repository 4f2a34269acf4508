#!/usr/bin/env bash
# Runs the real service on a machine that behaves like a customer's.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/customer-machine.sh [--short] [CASE...]

Builds, makes a Wine prefix of its own (build/wine/customer) and runs the log server there while the machine does what
customers' machines do. Each case checks what is expected of the server and of tamlogctl:

  Clocks          a day of messages, and times that jump: both ends of summer time, midnight, a leap day, the year 2038,
                  a clock that is set back. The log is in order of time, and tamlogctl follow has received each message
                  exactly once.
  DiskFull        no file can grow: a log that has its room continues; a start that needs more fails with its reason,
                  and the log stays.
  ReadOnlyFolder  the log's directory cannot be written: an existing log continues, a new one fails with its reason.
  LockedKey       the settings' registry key cannot be written: a start fails with its reason, a running server
                  continues, and its stop ends.
  Scanner         another program opens the log again and again without sharing it: no message is lost, and a start
                  that fails succeeds when it is tried again.

  --short   the form that ./test.sh runs, about two minutes and a half

Keeps the log in build/customer. Exit code: 0 when everything was as expected, 1 otherwise, 2 for a wrong option or a
failed build.
TEXT
}

form=whole
cases=()
arguments=("$@")
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --short) form=short ;;
    Clocks | DiskFull | ReadOnlyFolder | LockedKey | Scanner) cases+=("$1") ;;
    *) echo "customer-machine.sh: unexpected argument \"$1\"; see scripts/customer-machine.sh --help" >&2; exit 2 ;;
  esac
  shift
done
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/endurance.sh" "${arguments[@]}"
endurance_begin customer machine_trouble tamlogdrv tamlogctl TamLogServer

status=0
TAMLOG_CUSTOMER=$form python3 -B tests/soak/customer_machine_test.py -v "${cases[@]}" 8>&- </dev/null \
  >"$endurance_logs/run.log" 2>&1 || status=1
sed -n 's/.*note: //p' "$endurance_logs/run.log"
((status == 0)) || tail -n 60 "$endurance_logs/run.log" >&2
summary=$(grep '^Ran ' "$endurance_logs/run.log" || echo 'the run ended early')
echo "customer: $summary, $([[ $status == 0 ]] && echo 'everything as expected' || echo FAILED)"
exit "$status"
