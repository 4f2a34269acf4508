#!/usr/bin/env bash
# Runs one Windows program under Wine; ctest starts each test with it. A test to which ctest assigned a prefix of its
# own runs there, any other in the prefix that the environment names, else in build/wine/unit.
set -euo pipefail

case ${1:-} in
  '' | -h | --help) echo "usage: scripts/wine-run.sh PROGRAM.exe [ARGUMENT...]"; exit 2 ;;
esac
# shellcheck source=scripts/fixed-layout.sh
. "$(dirname "$0")/fixed-layout.sh" "$@"
root=$(cd "$(dirname "$0")/.." && pwd -P)
given=${CTEST_RESOURCE_GROUP_0_PREFIXES:-} # id:NAME,slots:1
if [[ -n $given ]]; then
  given=${given#id:}
  prefix=$root/build/wine/${given%%,*}
else
  prefix=${WINEPREFIX:-$root/build/wine/unit}
fi
[[ -d $prefix ]] || { echo "wine-run.sh: no Wine prefix $prefix; './test.sh prefixes' makes it" >&2; exit 1; }
# shellcheck source=scripts/wine-env.sh
. "$root/scripts/wine-env.sh" "$prefix"
exec "$wine64" "$@"
