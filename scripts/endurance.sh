# Sourced by bash from the tree's root `$root`: runs cases of build/bin/endurance_tests.exe for longer than ctest does.
# shellcheck shell=bash disable=SC2154

# run_endurance NAME SECONDS GTEST-FILTER: builds, makes the prefix build/wine/NAME anew, runs the cases there for at
# most SECONDS, and ends every process of the prefix. What they print is in build/NAME.log (`endurance_log`); shown
# when something was not as it should be. 0 when everything was; ends the script with 2 when the build fails.
run_endurance() {
  local name=$1 limit=$2 cases=$3 status=0 child
  # Read by whoever sources this.
  # shellcheck disable=SC2034
  endurance_log=$root/build/$name.log
  cd "$root" || return 1
  scripts/install-packages.sh run
  mkdir -p build
  scripts/build.sh windows endurance_tests >"$endurance_log" 2>&1 || { tail -n 40 "$endurance_log" >&2; exit 2; }
  scripts/wine-prefix.sh "$name" >/dev/null
  (
    # shellcheck source=scripts/wine-env.sh
    . scripts/wine-env.sh "$root/build/wine/$name"
    trap 'wine_server_stop' EXIT
    trap 'exit 143' TERM
    wine_server_start || { echo "Wine's server does not start in build/wine/$name" >&2; exit 1; }
    TAMLOG_TEST_LIMIT=0 timeout "$limit" "$wine64" build/bin/endurance_tests.exe \
      --gtest_filter="$cases" </dev/null >"$endurance_log" 2>&1 &
    wait $! # so that a signal is heeded at once
  ) &
  child=$!
  # A signal that reaches this script alone has to end what runs in the prefix, too.
  trap 'kill -TERM "$child" 2>/dev/null; wait "$child"; exit 130' INT
  trap 'kill -TERM "$child" 2>/dev/null; wait "$child"; exit 143' TERM HUP
  wait "$child" || status=$?
  trap - INT TERM HUP
  sed -i 's/\r$//' "$endurance_log"
  ((status == 0)) && return 0
  cat "$endurance_log" >&2
  [[ $status != 124 ]] || echo "$name: not done within $limit s" >&2
  return 1
}
