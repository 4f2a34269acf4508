#!/usr/bin/env bash
# Starts the real log server under Wine, submits messages to it in both ways and shows them from the shared file.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./run.sh [--once]

Installs missing Debian packages, builds, and runs the log server under Wine in a new prefix of its own
(build/wine/run): with the driver double, as a service of the service manager. Lines of this machine's own
logs are submitted through the driver and through the pipe and shown from the shared file; new messages are then
followed until Ctrl-C, which stops and removes everything that was started.

  --once   end after showing the messages; the default when standard output is not a terminal

Exit code: 0 when messages of both ways were shown (and after Ctrl-C while following), otherwise 1 with the name of the
step that failed.
TEXT
}

once=no
case "$#:${1:-}" in
  0:) ;;
  1:--once) once=yes ;;
  1:-h | 1:--help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac
[[ -t 1 ]] || once=yes
# shellcheck source=scripts/fixed-layout.sh
. "$(dirname "$0")/scripts/fixed-layout.sh" "$@"
color=()
if [[ -t 1 && -z ${NO_COLOR:-} ]]; then color=(--color always); fi
cd "$(dirname "$0")"
root=$PWD

readonly driver_messages=120 pipe_messages=60
readonly work=$root/build/run
readonly prefix=$root/build/wine/run
readonly installed="$prefix/drive_c/Program Files/Torvane"
readonly diagnostic_log=$prefix/drive_c/windows/TamLogServiceLog.txt

step='starting'
builder=''
in_wine=no service_installed=no service_started=no driver_installed=no
follower='' trickle=''

begin() {
  step=$1
  echo "== $step"
}

fail() {
  echo "run.sh: failed while $step${1:+: $1}" >&2
  exit 1
}

# The programs write CR LF.
plain_lines() { sed -u 's/\r$//'; }

# tool PROGRAM ARGUMENTS...: runs one of the installed programs, or one of Wine's own, for at most 60 s. The program
# writes into pipes, because Wine would draw on a terminal as on a console window. No process under Wine may inherit the
# lock (8), because it would hold it until it ends.
tool() {
  local program=$1
  shift
  [[ ! -e $installed/$program ]] || program=$installed/$program
  { timeout 60 "$wine64" "$program" "$@" 2>&1 >&3 3>&- 8>&- | plain_lines >&2; } 3>&1 | plain_lines
}

service_state() {
  tool sc.exe query TamLogServer 2>/dev/null </dev/null | sed -n 's/.*STATE *: *\([0-9]*\).*/\1/p'
}

# Succeeds when the server's process exists.
server_lives() {
  local process
  for process in $(wine_processes); do
    if tr '\0' ' ' 2>/dev/null <"/proc/$process/cmdline" | grep -q 'TamLogServer\.exe'; then return 0; fi
  done
  return 1
}

show_diagnostic_log() {
  [[ -s $diagnostic_log ]] || return 0
  echo "run.sh: the end of the server's diagnostic log:" >&2
  tr -d '\r' <"$diagnostic_log" | tail -n 20 >&2
}

# --- Stopping everything that was started, in the reverse order, also after failures.

# end_process_group SIGNAL ID
end_process_group() {
  local tries
  [[ -n $2 ]] || return 0
  kill "-$1" -- "-$2" 2>/dev/null || return 0
  for ((tries = 0; tries < 30; ++tries)); do
    kill -0 -- "-$2" 2>/dev/null || return 0
    sleep 0.1
  done
  kill -KILL -- "-$2" 2>/dev/null || true
}

stop_service() {
  local deadline=$((SECONDS + 30))
  # The manager's patience (10 s) may end before the server's own deadline (15 s) when a reader holds the file: 1053.
  tool sc.exe stop TamLogServer >"$work/stop.log" 2>&1 </dev/null || true
  while ((SECONDS < deadline)); do
    # The manager keeps reporting the last state of a server that ended by itself.
    if [[ $(service_state) == 1 ]] || ! server_lives; then return 0; fi
    sleep 0.25
  done
  echo "run.sh: the service did not stop" >&2
  show_diagnostic_log
  return 1
}

clean_up() {
  local failed=0
  end_process_group TERM "$builder"
  [[ $in_wine == yes ]] || return 0
  echo "== stopping and removing what was started"
  end_process_group TERM "$trickle"
  # Not killed: a reader that dies inside its access to the file would keep the server from writing.
  end_process_group INT "$follower"
  if [[ $service_started == yes ]]; then stop_service || failed=1; fi
  if [[ $service_installed == yes ]]; then
    tool TamLogServer.exe -remove </dev/null || failed=1
  fi
  if [[ $driver_installed == yes ]]; then tool tamlogdrv.exe remove </dev/null || failed=1; fi
  wine_server_stop || { echo "run.sh: processes of $prefix are still running" >&2; failed=1; }
  return "$failed"
}

on_exit() {
  local status=$?
  set +e
  trap '' INT TERM HUP PIPE
  trap - EXIT
  if ! clean_up && [[ $status -eq 0 ]]; then
    echo "run.sh: failed while stopping" >&2
    status=1
  fi
  exit "$status"
}
trap on_exit EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP
trap 'exit 141' PIPE

# --- The machine's own messages, oldest first, as lines of time, text (tab between).

dpkg_log_lines() {
  local log
  for log in /var/log/dpkg.log.1 /var/log/dpkg.log; do
    if [[ -r $log ]]; then sed -n 's/^\([0-9-]\{10\} [0-9:]\{8\}\) \(.*\)/\1\t\2/p' "$log"; fi
  done
}

apt_history_lines() {
  [[ -r /var/log/apt/history.log ]] || return 0
  awk '/^Start-Date: / { time = $2 " " $3; next }
       /^(Commandline|Requested-By|Install|Upgrade|Remove|Purge): / && time != "" { print time "\t" $0 }' \
    /var/log/apt/history.log
}

system_log_lines() {
  local log
  for log in /var/log/boot.log /var/log/kern.log /var/log/syslog; do
    if [[ -r $log ]]; then
      sed -n 's/^\([0-9]\{4\}-[0-9-]\{5\}\)T\([0-9:]\{8\}\)[^ ]* \(.*\)/\1 \2\t\3/p' "$log"
    fi
  done
}

# The times at which each package's files were unpacked; every Debian machine has these.
package_list_lines() {
  local list
  for list in /var/lib/dpkg/info/*.list; do
    printf '%s\tunpacked %s\n' "$(date -r "$list" '+%Y-%m-%d %H:%M:%S')" "$(basename "$list" .list)"
  done
}

# Writes the newest lines of the first log that has enough of them, and sets `feed` to the name of that log.
collect_lines() {
  local wanted=$((driver_messages + pipe_messages)) reader
  for reader in dpkg_log_lines apt_history_lines system_log_lines package_list_lines; do
    "$reader" 2>/dev/null | LC_ALL=C sort -s -t "$(printf '\t')" -k 1,1 | tail -n "$wanted" >"$work/lines"
    if (($(wc -l <"$work/lines") == wanted)); then
      case $reader in
        dpkg_log_lines) feed='dpkg' ;;
        apt_history_lines) feed='apt' ;;
        system_log_lines) feed='system' ;;
        *) feed='packages' ;;
      esac
      return 0
    fi
  done
  fail "this machine's logs have fewer than $wanted lines"
}

# Every third line goes through the pipe, the others through the driver; the source's name shows the way. The verb
# determines the type, so that there are several: T0 states, T1 installing, T2 upgrading, T3 removing.
split_lines() {
  rm -f "$work/driver.tsv" "$work/pipe.tsv"
  LC_ALL=C awk -F '\t' -v feed="$feed" -v work="$work" '
    {
      type = 1
      if ($2 ~ /^(status|startup)/) type = 0
      if ($2 ~ /^(upgrade|Upgrade)/) type = 2
      if ($2 ~ /^(remove|purge|Remove|Purge)/) type = 3
      way = NR % 3 == 0 ? "pipe" : "driver"
      printf "%s\t%d\t%s.%s\t%s\n", $1, type, feed, way, substr($2, 1, 250) > (work "/" way ".tsv")
    }' "$work/lines"
}

# --- The steps.

say_how_long() {
  if [[ -x build/bin/tamlogctl.exe ]]; then
    echo 'This takes about half a minute, or longer when many files have to be compiled again.'
  else
    echo 'The first run installs packages, compiles and creates a Wine prefix: about three minutes on two cores.'
  fi
}

# The build runs in a session of its own, because bash makes background commands ignore Ctrl-C.
start_build() {
  local log=$work/build.log
  [[ ! -t 1 ]] || log=/dev/stdout
  setsid scripts/build.sh windows TamLogServer tamlogctl tamlog tamlogdrv >"$log" 2>&1 8>&- &
  builder=$!
}

finish_build() {
  begin 'building'
  wait "$builder" || { builder=''; [[ -t 1 ]] || tail -n 40 "$work/build.log" >&2; fail; }
  builder=''
}

prepare() {
  say_how_long
  begin 'installing the packages that the build needs'
  scripts/install-packages.sh build || fail

  mkdir -p "$work"
  exec 8>"$work/.lock"
  flock --nonblock 8 || fail 'another run.sh is running in this tree'
  rm -f "$work"/*

  begin 'installing Wine while the build runs'
  start_build
  scripts/install-packages.sh run 8>&- || fail

  begin 'creating a Wine prefix'
  scripts/wine-prefix.sh run 8>&- || fail
  # shellcheck source=scripts/wine-env.sh
  . scripts/wine-env.sh "$prefix"
  in_wine=yes
  wine_server_start 8>&- || fail "Wine's server does not start"
  finish_build
  mkdir -p "$installed"
  cp build/bin/TamLogServer.exe build/bin/tamlogctl.exe build/bin/tamlog.sys build/bin/tamlogdrv.exe "$installed/"
}

start_service() {
  local deadline
  begin 'installing and loading the driver double'
  driver_installed=yes
  tool tamlogdrv.exe install "C:\\Program Files\\Torvane\\tamlog.sys" </dev/null || fail

  begin 'installing the service'
  service_installed=yes
  tool TamLogServer.exe -install </dev/null || fail

  begin 'starting the service'
  service_started=yes
  tool sc.exe start TamLogServer >"$work/start.log" 2>&1 </dev/null ||
    { cat "$work/start.log" >&2; show_diagnostic_log; fail; }
  deadline=$((SECONDS + 30))
  while ((SECONDS < deadline)); do
    server_lives || { show_diagnostic_log; fail 'the server ended again'; }
    if [[ $(service_state) == 4 ]] && tool tamlogctl.exe status >"$work/status.log" 2>&1 </dev/null; then return 0; fi
    sleep 0.25
  done
  cat "$work/status.log" >&2 || true
  show_diagnostic_log
  fail 'the server does not answer'
}

feed_messages() {
  begin "submitting $driver_messages messages through the driver and $pipe_messages through the pipe"
  collect_lines
  split_lines
  tool tamlogdrv.exe put <"$work/driver.tsv" || fail 'tamlogdrv put'
  tool tamlogctl.exe send --input tsv <"$work/pipe.tsv" || fail 'tamlogctl send'
}

# Prints the number of messages of a source that the shared file holds now.
stored() {
  tool tamlogctl.exe show -n all 2>>"$work/show.log" </dev/null | grep -cF " $1: " || true
}

show_messages() {
  local deadline=$((SECONDS + 30)) from_driver=0 from_pipe=0
  begin 'waiting until they are stored'
  # The server polls the driver once a second and writes the file five times a second.
  while ((SECONDS < deadline)); do
    from_driver=$(stored "$feed.driver") from_pipe=$(stored "$feed.pipe")
    ((from_driver < driver_messages || from_pipe < pipe_messages)) || break
    sleep 0.5
  done
  if ((from_driver != driver_messages || from_pipe != pipe_messages)); then
    tail -n 5 "$work/show.log" >&2
    show_diagnostic_log
    fail "stored: $from_driver of $driver_messages from the driver and $from_pipe of $pipe_messages from the pipe"
  fi

  # Each way is shown separately, because messages of the same second are in the order of arrival, whatever the way.
  local way
  for way in driver pipe; do
    begin "showing the newest 10 messages of the $way from the shared file"
    tool tamlogctl.exe show -n 10 -s "$feed.$way" </dev/null | tee "$work/shown.txt" || fail
    [[ $(grep -cF " $feed.$way: " "$work/shown.txt") == 10 ]] || fail 'fewer than 10 messages are shown'
  done

  begin 'status'
  tool tamlogctl.exe status </dev/null || fail
  echo "All $from_driver messages of the driver and all $from_pipe of the pipe are in the shared file."
}

# Submits live messages to follow: the machine's load, every other second in each way.
send_live_messages() {
  local way
  while sleep 1; do
    for way in driver pipe; do
      printf '%s\t0\tload.%s\t%s\n' "$(date '+%Y-%m-%d %H:%M:%S.%3N')" "$way" "$(cat /proc/loadavg)" >"$work/live.tsv"
      if [[ $way == driver ]]; then
        tool tamlogdrv.exe put <"$work/live.tsv" >/dev/null
      else
        tool tamlogctl.exe send --input tsv <"$work/live.tsv" >/dev/null
      fi
      sleep 0.5
    done
  done
}

follow_messages() {
  begin 'following live messages (Ctrl-C ends)'
  # Both run in sessions of their own: Ctrl-C reaches only this script, which then ends them in order.
  export -f tool plain_lines send_live_messages
  export wine64 installed work
  setsid bash -c send_live_messages >>"$work/live.log" 2>&1 </dev/null 8>&- &
  trickle=$!
  disown "$trickle"
  trap 'exit 0' INT # Ctrl-C is the normal end
  setsid env --default-signal=INT "$wine64" "$installed/tamlogctl.exe" follow "${color[@]}" \
    > >(setsid sed -u 's/\r$//' 8>&-) 2>&1 </dev/null 8>&- &
  follower=$!
  wait "$follower" || true
  fail 'tamlogctl follow ended by itself'
}

prepare
start_service
feed_messages
show_messages
[[ $once == yes ]] || follow_messages
