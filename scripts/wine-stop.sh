#!/usr/bin/env bash
# Ends every process of the project's Wine prefixes and waits for their end.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/wine-stop.sh [NAME...]

Ends every process of the Wine prefixes build/wine/NAME, of all prefixes without a name, and waits for their end. Ends
services without a stop control.
TEXT
}

case ${1:-} in -h | --help) usage; exit 0 ;; -*) usage >&2; exit 2 ;; esac
root=$(cd "$(dirname "$0")/.." && pwd -P)
names=("$@")
if (($# == 0)); then
  for prefix in "$root"/build/wine/*/; do
    [[ -d $prefix ]] && names+=("$(basename "$prefix")")
  done
fi

failed=0
for name in "${names[@]}"; do
  [[ -d $root/build/wine/$name ]] || { echo "wine-stop.sh: no prefix build/wine/$name" >&2; failed=1; continue; }
  (
    # shellcheck source=scripts/wine-env.sh
    . "$root/scripts/wine-env.sh" "$root/build/wine/$name"
    wine_server_stop
  ) || { echo "wine-stop.sh: processes of $name are still running" >&2; failed=1; }
done
exit "$failed"
