# Sourced by bash with the caller's arguments, `. scripts/endurance.sh "$@"`, by scripts that run Windows programs for
# longer than ctest does. Runs the calling script again as fixed-layout.sh describes, and changes to the tree's root,
# `$root`.
# shellcheck shell=bash

# shellcheck source=scripts/fixed-layout.sh
. "${BASH_SOURCE[0]%/*}/fixed-layout.sh" "$@"
cd "${BASH_SOURCE[0]%/*}/.." || exit
root=$PWD

# endurance_begin NAME TARGET...: locks out a second run of NAME in this tree, installs missing packages, builds the
# targets for Windows, recreates the prefix build/wine/NAME and starts its server. Every process of the prefix ends with
# the calling shell. Logs go into build/NAME; `endurance_logs` is set to that path. Ends the shell with 2 when the build
# fails, with 1 for other failures.
endurance_begin() {
  local name=$1
  shift
  readonly endurance_logs=$root/build/$name
  mkdir -p "$endurance_logs"
  exec 8>"$endurance_logs/.lock"
  flock --nonblock 8 || { echo "$name: another run is active in this tree" >&2; exit 1; }
  # No child inherits the lock: the processes that Wine leaves running would hold it.
  scripts/install-packages.sh run 8>&-
  scripts/build.sh windows "$@" >"$endurance_logs/build.log" 2>&1 8>&- ||
    { tail -n 40 "$endurance_logs/build.log" >&2; echo "$name: the build failed" >&2; exit 2; }
  local prefix
  prefix=$(scripts/wine-prefix.sh "$name" 8>&-) || exit 1
  # shellcheck source=scripts/wine-env.sh
  . scripts/wine-env.sh "$prefix"
  trap 'wine_server_stop || echo "processes of $WINEPREFIX are still running" >&2' EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM HUP
  wine_server_start 8>&- || { echo "$name: Wine's server does not start in $prefix" >&2; exit 1; }
}

# endurance_run LOG SECONDS PROGRAM [ARGUMENT...]: runs build/bin/PROGRAM for at most SECONDS. Its output goes into
# build/NAME/LOG.log; when it fails, the output without `note: ` lines and summaries also goes to stderr. Returns the
# program's exit code; 124 when it took too long.
endurance_run() {
  local log=$endurance_logs/$1.log limit=$2 program=build/bin/$3 status=0
  shift 3
  # Switches off the tests' watchdog, whose limit suits short tests. `wait` lets the shell handle a signal at once.
  TAMLOG_TEST_LIMIT=0 timeout "$limit" "$wine64" "$program" "$@" >"$log" 2>&1 8>&- </dev/null &
  wait $! || status=$?
  sed -i 's/\r$//' "$log"
  ((status == 0)) && return 0
  grep -Ev '^(note|soak|kills|clients|readers|cycles|connects): ' "$log" | tail -n 60 >&2
  ((status != 124)) || echo "$program: not done within $limit s" >&2
  echo "$program: failed with exit code $status, see $log" >&2
  return "$status"
}
