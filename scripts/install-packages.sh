#!/usr/bin/env bash
# Installs the missing Debian packages that building, running and testing need.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/install-packages.sh [build|run|test|fuzz|bench|package]

Installs the missing ones of the Debian packages that the project needs, as root or with sudo:
  build  for building everything
  run    these, and Wine, for running the programs (run.sh)
  test   these, and the packages for checks, native tests, fuzz targets and packaging (test.sh); the default
  fuzz   for building and running the fuzz targets (fuzz.sh)
  bench  for building and running the server, and the peers of the benchmarks (bench.sh)
  package  for making the packages of a release and trying them under Wine (package.sh)
Does not use the network when nothing is missing.
TEXT
}

build_packages=(
  cmake ninja-build g++ libc6-dev     # the build, and the compiler of native builds
  g++-mingw-w64-x86-64-posix          # the cross-compiler; brings the linker, windres and windows.h
  googletest                          # its sources; the build compiles them
  nlohmann-json3-dev libcli11-dev libfmt-dev  # used by tamlogctl
  zlib1g-dev liblzma-dev libz-mingw-w64-dev   # likewise, for compressed logs
  python3                             # used by the build files
)
run_packages=("${build_packages[@]}" wine64)
test_packages=(
  clang-14 clang-tidy-14 clang-format-14  # thread-safety analysis, clang-tidy, format
  libspdlog-dev pkg-config                # programs that use the installed client library
  xz-utils                                # compresses logs for tests
  groff-base man-db zsh                   # checks of the manual page and of completions
  lintian                                 # checks the Debian package
  jq lnav rsyslog systemd systemd-journal-remote python3-jsonschema  # read what tamlogctl writes (tests/client/format)
)

fuzz_packages=(
  clang-14 libclang-rt-14-dev  # builds and links fuzz targets
)

bench_packages=(
  systemd systemd-journal-remote  # journalctl, and the writer of a journal of our messages
  libsystemd-dev libsqlite3-dev liblmdb-dev libspdlog-dev  # other logs and stores, as libraries
  util-linux                      # taskset
)

package_packages=(
  nsis wixl msitools  # makers of the setup program and the MSI
  dpkg-dev            # maker of the Debian package
  git                 # names the commit, whose time is in the files
  osslsigncode openssl  # sign programs, setup program and MSI; make the certificate of the test
)

set_name=${1:-test}
case $set_name in
  -h | --help) usage; exit 0 ;;
  build) wanted=("${build_packages[@]}") ;;
  run) wanted=("${run_packages[@]}") ;;
  test) wanted=("${run_packages[@]}" "${test_packages[@]}" "${fuzz_packages[@]}" "${package_packages[@]}") ;;
  fuzz) wanted=("${run_packages[@]}" "${fuzz_packages[@]}") ;;
  bench) wanted=("${run_packages[@]}" "${bench_packages[@]}") ;;
  package) wanted=("${run_packages[@]}" "${package_packages[@]}") ;;
  *) usage >&2; exit 2 ;;
esac

is_installed() {
  [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

missing=()
for package in "${wanted[@]}"; do
  is_installed "$package" || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
  echo "packages: all ${#wanted[@]} are installed"
  exit 0
fi

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "install-packages.sh: missing: ${missing[*]}" >&2
    echo "install-packages.sh: installing them needs root or sudo; run this as root: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

# Prints apt's whole output if it fails, and nothing otherwise.
apt() {
  local log
  log=$(mktemp)
  if "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=120 "$@" \
    >"$log" 2>&1 </dev/null; then
    rm -f "$log"
    return 0
  fi
  cat "$log" >&2
  rm -f "$log"
  return 1
}

# A simulation shows whether the lists (absent in a fresh container, or outdated) contain all packages.
lists_know() {
  apt-get -q --simulate install --no-install-recommends "$@" >/dev/null 2>&1
}

echo "packages: installing ${#missing[@]} with apt-get: ${missing[*]}"
if ! lists_know "${missing[@]}"; then
  apt update || { echo "install-packages.sh: apt-get update failed" >&2; exit 1; }
fi
if ! apt install --yes --no-install-recommends "${missing[@]}"; then
  # The lists may name versions that the archive no longer has.
  echo "packages: trying again with fresh lists"
  apt update || { echo "install-packages.sh: apt-get update failed" >&2; exit 1; }
  apt install --yes --no-install-recommends "${missing[@]}" ||
    { echo "install-packages.sh: apt-get install failed" >&2; exit 1; }
fi
for package in "${missing[@]}"; do
  is_installed "$package" || { echo "install-packages.sh: $package is still missing" >&2; exit 1; }
done
