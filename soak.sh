#!/usr/bin/env bash
# Puts everything at once on the real service for some minutes, and accounts for every single message.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./soak.sh [--minutes N] [--clients N]

Builds, makes a Wine prefix of its own (build/wine/soak) and runs the log server there as a service under load: clients
that hand in messages over connections they hold open, a driver that delivers thousands a tick, programs that follow the
log, filters that change, clears, and settings that restart the server every few seconds. In the end each message has to
be stored, or there has to be a reason why not:

  filtered                 dropped by filters, which stood still while it was handed in
  overwritten              the ring was full, and all in it was newer
  overwritten by bursts    more came at once than the ring has room for (the newest go first then)
  refused                  with an error
  pending at restarts      taken, but not yet written when the server stopped for new settings
  cleared unseen           taken, and gone with a clear before anybody looked
  not stored while filters changed, unanswered and not stored
                           nobody can say whether these had to be stored

Handles, threads and memory of the server are looked at in each round, and may not grow: the most of the first half of the
rounds is compared with the most of the second half. The last line is the account.

  --minutes N   for how long (default 10)
  --clients N   how many clients (default 250, at most 1000)

The log of the run, and what stands in the server's diagnostic log, are kept in build/soak.

Exit code: 0 when every message is accounted for and the server held its size, 1 otherwise, 2 for a wrong option or a
build that fails.
TEXT
}

minutes=10 clients=250
arguments=("$@")
whole_number() {
  [[ ${2:-} =~ ^[1-9][0-9]{0,3}$ ]] || { echo "soak.sh: $1 wants a whole number from 1 on, not \"${2:-}\"" >&2; exit 2; }
}
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --minutes) whole_number "$1" "${2:-}"; minutes=$2; shift 2 ;;
    --clients) whole_number "$1" "${2:-}"; clients=$2; shift 2 ;;
    *) echo "soak.sh: there is no option \"$1\"; --help lists them" >&2; exit 2 ;;
  esac
done
if ((clients > 1000)); then echo "soak.sh: --clients $clients is more than 1000" >&2; exit 2; fi
# shellcheck source=scripts/fixed-layout.sh
. "$(dirname "$0")/scripts/fixed-layout.sh" "${arguments[@]}"
cd "$(dirname "$0")"
root=$PWD
# shellcheck source=scripts/endurance.sh
. scripts/endurance.sh
endurance_begin soak soak_run

export TAMLOG_SOAK_SECONDS=$((minutes * 60)) TAMLOG_SOAK_CLIENTS=$clients
status=0
endurance_run run $((minutes * 60 + 600)) soak_run.exe || status=1
sed -n 's/^note: //p' build/soak/run.log
account=$(grep '^soak: ' build/soak/run.log || echo 'soak: no account: the run ended early')
((status == 0)) || account+=' FAILED'
echo "$account"
exit "$status"
