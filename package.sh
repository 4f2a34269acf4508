#!/usr/bin/env bash
# Makes the packages of a release.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: ./package.sh [--no-install] [--no-build] [--release] [--output DIRECTORY]

Installs missing Debian packages, builds the presets windows and linux, and makes in build/packages, or DIRECTORY:
  torvane-log-server-VERSION-x64.zip           server, command line, client library, documents, licences
  torvane-log-server-VERSION-x64-setup.exe     the setup program; silent with /S
  torvane-log-server-VERSION-x64.msi           the MSI; silent with msiexec /i FILE /qn
  torvane-log-tools_VERSION_amd64.deb          command line and client library for Debian
  winget                                       the manifest for winget
  torvane-log-conformance-VERSION.zip          the conformance kit, for programs of other makers
  torvane-log-server-VERSION-x64-symbols.zip   the symbols of the programs, for debuggers
  torvane-log-server-VERSION-x64.spdx.json     the bill of materials (SPDX 2.3)
  SHA256SUMS                                   check with: sha256sum --check SHA256SUMS

  --no-install   do not install Debian packages
  --no-build     take the programs that are built already
  --release      refuse placeholders in packaging/maker.env, uncommitted changes, and packages without signatures
  --output       where to put the packages; earlier packages in it are deleted

The files depend on the sources and the versions of the compiler and its libraries only: two builds in two places are
equal, bit for bit. SOURCE_DATE_EPOCH sets the time inside the files, by default the time of the last commit.
packaging/maker.env holds what only the maker knows: contact, licence, addresses, and in SIGN the command that signs
programs, setup program and MSI (docs/packages.md, "Signatures"). Environment variables of these names take precedence.

Exit code: 0 when everything was made and checked, 1 with the name of the step that failed, 2 for wrong usage.
TEXT
}

install=yes build=yes release=no packages=build/packages
while (($# > 0)); do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --no-install) install=no ;;
    --no-build) build=no ;;
    --release) release=yes ;;
    --output)
      [[ ${2:-} == [!-]* ]] || { usage >&2; exit 2; }
      packages=$(realpath -m "$2")
      shift
      ;;
    *) usage >&2; exit 2 ;;
  esac
  shift
done
cd "$(dirname "$0")"
umask 022
export LC_ALL=C.UTF-8 TZ=UTC PYTHONDONTWRITEBYTECODE=1

step='starting'
begin() {
  step=$1
  echo "== $step"
}
fail() {
  trap - ERR
  echo "package.sh: failed while $step${1:+: $1}" >&2
  exit 1
}
trap fail ERR

version=$(sed -n 's/^project(TorvaneLogServer VERSION \([0-9]*\.[0-9]*\.[0-9]*\) .*/\1/p' CMakeLists.txt)
[[ -n $version ]] || fail 'CMakeLists.txt names no version'
if [[ -z ${SOURCE_DATE_EPOCH:-} ]]; then
  SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null) || SOURCE_DATE_EPOCH=315532800 # 1980, where zip files begin
fi
export SOURCE_DATE_EPOCH
# shellcheck source=packaging/maker.env
. packaging/maker.env
readonly version packages name=torvane-log-server-$version-x64
readonly work=$packages/work
readonly stage=$work/stage

if [[ $release == yes ]]; then
  begin 'checking what a release needs'
  packaging/check-release.sh || fail
fi

mkdir -p "$packages"
exec 8>"$packages/.lock"
flock --nonblock 8 || { trap - ERR; echo 'package.sh: another package.sh is running in this tree' >&2; exit 1; }
rm -rf "$work"
rm -rf "${packages:?}/winget"
rm -f "$packages"/torvane-log-* "$packages/SHA256SUMS"
mkdir -p "$stage"

run_logged() {
  "$@" >"$work/step.log" 2>&1 8>&- || { tail -n 40 "$work/step.log" >&2; fail; }
}

if [[ $install == yes ]]; then
  begin 'installing the Debian packages that packaging needs'
  scripts/install-packages.sh package
fi

if [[ $build == yes ]]; then
  begin 'building for Windows (minutes, when many files have to be compiled)'
  run_logged scripts/build.sh windows TamLogServer tamlogctl tamlogcheck tamlog_shared tamlog_static setup_helper \
    msi_actions
  begin "building the conformance kit's program"
  run_logged scripts/build.sh windows pipe_claims
  begin 'building for Linux'
  run_logged scripts/build.sh linux tamlogctl tamlog_shared tamlog_static
fi

SECONDS=0
begin 'separating the symbols'
packaging/strip-programs.sh build/bin "$work/programs"
packaging/check_programs.py "$version" "$work/programs"

begin 'collecting files, licences and the bill of materials'
packaging/stage.sh "$work/programs" build/windows "$stage"
mapfile -d '' -t signed < <(find "$stage" "$work/programs"/{setup_helper.exe,msi_actions.dll} \
  \( -name '*.exe' -o -name '*.dll' \) -print0 | LC_ALL=C sort -z)
packaging/sign_files.py "${signed[@]}"
packaging/make_sbom.py build/windows "$stage" "$version" "$packages/$name.spdx.json"

begin 'making the zip files'
packaging/make_zip.py "$stage" "$name" "$packages/$name.zip"
packaging/make_zip.py "$work/programs/symbols" "$name-symbols" "$packages/$name-symbols.zip"

begin 'making the conformance kit'
packaging/stage-kit.sh build/bin/pipe_claims.exe "$stage/licenses" "$work/kit"
packaging/make_zip.py "$work/kit" "torvane-log-conformance-$version" "$packages/torvane-log-conformance-$version.zip"

begin 'making the setup program'
packaging/make-setup.sh "$stage" "$work/programs/setup_helper.exe" "$version" "$packages/$name-setup.exe"
packaging/sign_files.py "$packages/$name-setup.exe"
begin 'making the MSI'
packaging/make_msi.py "$stage" "$work/programs/msi_actions.dll" "$version" "$packages/$name.msi"
packaging/sign_files.py "$packages/$name.msi"
begin 'making the Debian package'
packaging/make-deb.sh build/bin build/linux "$version" "$stage/licenses" "$packages/torvane-log-tools_${version}_amd64.deb"
begin 'writing the winget manifest'
packaging/make_winget.py "$version" "$DOWNLOAD_URL/$version" \
  "$packages/$name.msi" "$packages/$name-setup.exe" "$packages/winget"

begin 'writing SHA256SUMS'
(cd "$packages" && sha256sum -- torvane-log-* winget/* >SHA256SUMS)
rm -rf "$work"
echo "The packages are in $packages, made in $SECONDS s after the build:"
[[ -n $SIGN ]] || echo 'They are not signed: SIGN is empty.'
(cd "$packages" && stat --printf '  %11s  %n\n' -- torvane-log-* winget/* SHA256SUMS)
