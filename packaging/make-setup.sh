#!/usr/bin/env bash
# Makes the setup program.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/make-setup.sh STAGE HELPER VERSION OUTPUT.exe

Packs the files of the directory STAGE and the stripped program HELPER (setup_helper.exe) into a setup program.
SOURCE_DATE_EPOCH is the time of all files. If SIGN is set, the uninstaller is signed; the setup program is left to the
caller.
TEXT
}

case "$#:${1:-}" in
  1:-h | 1:--help) usage; exit 0 ;;
  4:[!-]*) ;;
  *) usage >&2; exit 2 ;;
esac
stage=$1 helper=$(realpath "$2") version=$3 output=$(realpath -m "$4")
here=$(cd "$(dirname "$0")" && pwd -P)
# shellcheck source=packaging/maker.env
. "$here/maker.env"

# The stub of earlier versions lets other users change the copy from which the uninstaller runs.
readonly oldest=3.08-3+deb12u1
nsis=$(dpkg-query --show --showformat='${Version}' nsis)
dpkg --compare-versions "$nsis" ge "$oldest" ||
  { echo "make-setup.sh: nsis $nsis is too old; version $oldest is needed" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$stage" "$work/files"
# The list by which an upgrade or a removal knows the files of a package.
(cd "$work/files" && find . -type f -printf '%P\r\n' && printf 'uninstall.exe\r\nsetup-files.txt\r\n') | LC_ALL=C sort \
  >"$work/setup-files.txt"
mv "$work/setup-files.txt" "$work/files/"
find "$work" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
definitions=("-DVERSION=$version" -DPAYLOAD=files "-DHELPER=$helper" "-DOUTPUT=$output"
  "-DICON=$here/resources/torvane.ico" "-DCOPYRIGHT=$MAKER_COPYRIGHT")
[[ -z $SIGN ]] || definitions+=("-DSIGNER=$here/sign_files.py")
# A fixed name of the payload, because the packed data hold it.
(cd "$work" && makensis -V2 -NOCD "${definitions[@]}" "$here/setup/setup.nsi")
