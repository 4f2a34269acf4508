#!/usr/bin/env bash
# Makes a fresh Wine prefix under build/wine and prints its path.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/wine-prefix.sh NAME

Recreates the Wine prefix build/wine/NAME and prints its path; stops and deletes an old one of that name. Prefixes are
clones of build/wine/template, which is made once for each version of Wine and takes some seconds.
TEXT
}

case ${1:-} in
  -h | --help) usage; exit 0 ;;
  '' | -* | */* | .* | template*) usage >&2; exit 2 ;;
esac
# shellcheck source=scripts/fixed-layout.sh
. "$(dirname "$0")/fixed-layout.sh" "$@"
name=$1
root=$(cd "$(dirname "$0")/.." && pwd -P)
prefixes=$root/build/wine
template=$prefixes/template
mkdir -p "$prefixes"

# One at a time: two callers must not make the template, or the same prefix, at the same time.
exec 9>"$prefixes/.lock"
flock --timeout 300 9 || { echo "wine-prefix.sh: another run holds $prefixes/.lock" >&2; exit 1; }

stop_prefix() {
  # Wine's server must not inherit the lock: it would hold it.
  (
    exec 9>&-
    # shellcheck source=scripts/wine-env.sh
    . "$root/scripts/wine-env.sh" "$1"
    wine_server_stop
  )
}

make_template() {
  echo "wine-prefix.sh: making the template prefix (once)" >&2
  stop_prefix "$template"
  rm -rf "$template"
  (
    exec 9>&-
    # shellcheck source=scripts/wine-env.sh
    . "$root/scripts/wine-env.sh" "$template"
    timeout 180 "$wine64" wineboot.exe -i >/dev/null 2>&1 </dev/null
    # The first boot continues after the program ended; services cannot be started before its end.
    timeout 180 "$wineserver64" -w >/dev/null 2>&1 </dev/null
  ) || { echo "wine-prefix.sh: Wine could not make a prefix in $template" >&2; exit 1; }
  for file in system.reg user.reg userdef.reg .update-timestamp drive_c/windows/system32/services.exe; do
    [[ -e $template/$file ]] || { echo "wine-prefix.sh: the new prefix lacks $file" >&2; exit 1; }
  done
  echo "$wine_version" >"$template/.complete"
}

# The files are hard links, except those that Wine writes in place: a change would affect both prefixes.
clone_template() {
  cp -al "$template" "$1" 2>/dev/null || { rm -rf "$1"; cp -a "$template" "$1"; }
  for file in system.reg user.reg userdef.reg .update-timestamp; do
    cp --remove-destination "$template/$file" "$1/$file"
  done
  # The marker of the template's server means nothing here.
  rm -f "$1/.complete" "$1/wineserver"
}

wine_version=$(dpkg-query --show --showformat='${Version}' wine64)
if [[ $(cat "$template/.complete" 2>/dev/null) != "$wine_version" ]]; then make_template; fi

stop_prefix "$prefixes/$name"
rm -rf "${prefixes:?}/$name"
clone_template "$prefixes/$name"
echo "$prefixes/$name"
