#!/usr/bin/env bash
# Puts every kind of load on the real service at once for some minutes, and accounts for every single message.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./soak.sh [--minutes N] [--clients N]

Builds, makes a Wine prefix of its own (build/wine/soak) and runs the log server there as a service under load: clients
that submit messages over connections they hold open, a driver that delivers thousands a tick, programs that follow the
log, filters that change, clears, and settings that restart the server every few seconds. In the end each message must
be stored or have a reason for its absence:

  filtered                 dropped by filters that did not change while it was submitted
  overwritten              the ring was full, and all in it was newer
  overwritten by bursts    more came at once than the ring has room for (the newest are dropped first then)
  refused                  with an error
  pending at restarts      received, but not yet written when the server stopped for new settings
  cleared unseen           received, and removed by a clear before anybody read it
  not stored while filters changed, unanswered and not stored
                           it cannot be determined whether these had to be stored

Checks handles, threads and memory of the server in each round. They may not grow: the maximum of the first half of the
rounds is compared with the maximum of the second half. The last line is the summary.

  --minutes N   duration (default 10)
  --clients N   number of clients (default 250, at most 1000)

Keeps the log of the run, and the entries of the server's diagnostic log, in build/soak.

Exit code: 0 when every message is accounted for and the server did not grow, 1 otherwise, 2 for a wrong option or a
failed build.
TEXT
}

minutes=10 clients=250
# shellcheck source=scripts/options.sh
. "$(dirname "$0")/scripts/options.sh"
number_options "minutes:4 clients:4" "$@"
if ((clients > 1000)); then echo "soak.sh: --clients $clients is more than 1000" >&2; exit 2; fi
# shellcheck source=scripts/endurance.sh
. "$(dirname "$0")/scripts/endurance.sh" "$@"
endurance_begin soak soak_run

export TAMLOG_SOAK_SECONDS=$((minutes * 60)) TAMLOG_SOAK_CLIENTS=$clients
status=0
endurance_run run $((minutes * 60 + 600)) soak_run.exe || status=1
sed -n 's/^note: //p' build/soak/run.log
account=$(grep '^soak: ' build/soak/run.log || echo 'soak: no summary: the run ended early')
((status == 0)) || account+=' FAILED'
echo "$account"
exit "$status"
