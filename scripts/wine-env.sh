# Sourced by bash: `. scripts/wine-env.sh PREFIX` sets the environment in which Wine uses the prefix PREFIX (an
# absolute path) and defines functions that start and stop its server. Each prefix is a machine of its own: registry,
# services, pipes and devices of one are not visible in another.
# shellcheck shell=bash

export WINEPREFIX=${1:?usage: . scripts/wine-env.sh PREFIX}
export WINEARCH=win64
# In the C locale Wine cannot use file names beyond ASCII.
export LC_ALL=C.UTF-8
export WINEDEBUG=-all
export WINELOADER=/usr/lib/wine/wine64
# Switches off Mono, the HTML engine, menu entries, and the debugger, which would delay a crash by seconds.
export WINEDLLOVERRIDES='mscoree,mshtml,winedbg.exe=d;winemenubuilder.exe=d'
unset DISPLAY WAYLAND_DISPLAY

# The programs themselves: Debian's wrappers in /usr/bin look for 32-bit Wine and print warnings.
# shellcheck disable=SC2034
wine64=/usr/lib/wine/wine64
wineserver64=/usr/lib/wine/wineserver64

# Starts the prefix's server, which runs until it is stopped: drivers stay loaded between two commands, and starting a
# program takes 20 ms instead of 400. The server, and the processes that the first program starts, would hold every
# inherited pipe open, and a reader of such a pipe would wait for its end for ever. So they inherit none.
wine_server_start() {
  timeout 30 "$wineserver64" -p >/dev/null 2>&1 </dev/null &&
    timeout 120 "$wine64" cmd.exe /c exit >/dev/null 2>&1 </dev/null
}

# Prints the ids of the processes that run in this prefix, the server included.
wine_processes() {
  local environment
  for environment in /proc/[0-9]*/environ; do
    if grep -qzxF "WINEPREFIX=$WINEPREFIX" "$environment" 2>/dev/null; then
      environment=${environment%/environ}
      # The scripts themselves carry the variable too.
      case $(readlink "$environment/exe" 2>/dev/null) in
        */wine64 | */wine64-preloader | */wineserver64) echo "${environment#/proc/}" ;;
      esac
    fi
  done
}

# Ends every process of the prefix and waits for their end. Services receive no stop control.
wine_server_stop() {
  local tries processes
  [[ -d $WINEPREFIX ]] || return 0
  timeout 20 "$wineserver64" -k >/dev/null 2>&1 </dev/null || true
  timeout 20 "$wineserver64" -w >/dev/null 2>&1 </dev/null || true
  for ((tries = 0; tries < 50; ++tries)); do
    processes=$(wine_processes)
    [[ -n $processes ]] || return 0
    sleep 0.1
  done
  # Ends a hanging process by its id.
  # shellcheck disable=SC2086
  kill -KILL $processes 2>/dev/null || true
  sleep 0.2
  [[ -z $(wine_processes) ]]
}
