#!/usr/bin/env bash
# Tests the packages that package.sh made, under Wine.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/test.sh [--quick] [TEST...]

Checks the files in build/packages. Then installs, upgrades and removes the packages in a Wine prefix of their own, with
the real service and the driver double. TEST is the name of a class or a case, such as Setup or
Msi.test_cycles_leave_nothing_behind; then only these run. --quick takes about two minutes: the main paths with two
faults each, and one cycle instead of 20. Run ./package.sh first; the programs tamlogdrv.exe and
tamlog.sys have to be built as well.
TEXT
}

case ${1:-} in
  -h | --help) usage; exit 0 ;;
  --quick | [!-]* | '') ;;
  *) usage >&2; exit 2 ;;
esac
# shellcheck source=../scripts/fixed-layout.sh
. "$(dirname "$0")/../scripts/fixed-layout.sh" "$@"
cd "$(dirname "$0")/.."
export PYTHONDONTWRITEBYTECODE=1
for file in build/packages/SHA256SUMS build/bin/tamlogdrv.exe build/bin/tamlog.sys; do
  [[ -e $file ]] || { echo "packaging/test.sh: $file is missing; run ./package.sh and build tamlogdrv" >&2; exit 1; }
done
(cd build/packages && sha256sum --check --quiet SHA256SUMS) ||
  { echo 'packaging/test.sh: build/packages is not complete; run ./package.sh' >&2; exit 1; }
if [[ $# -eq 0 || $* == --quick ]]; then
  python3 packaging/tests/release_files_test.py
  # Making all packages again, with signatures, takes half a minute.
  classes=()
  (($# == 0)) || classes=(Hook Release)
  python3 packaging/tests/signing_test.py "${classes[@]}"
fi
exec python3 packaging/tests/packages_test.py "$@"
