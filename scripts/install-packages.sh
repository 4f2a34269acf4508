#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing need, those of them that are missing.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/install-packages.sh [build|run|test|fuzz|bench]

Installs the missing ones of the Debian packages that the project needs, as root or by sudo:
  build  to build everything
  run    that, and Wine, to run what was built (run.sh)
  test   that, and what the checks, native tests and fuzz targets need (test.sh); the default
  fuzz   to build and run the fuzz targets (fuzz.sh)
  bench  to build and run the server, and the peers that it is measured against (bench.sh)
Nothing is asked of the network when nothing is missing.
TEXT
}

build_packages=(
  cmake ninja-build g++ libc6-dev     # the build, and the compiler of native builds
  g++-mingw-w64-x86-64-posix          # the cross-compiler; brings the linker, windres and windows.h
  googletest                          # its sources; the build files name them
  nlohmann-json3-dev libcli11-dev libfmt-dev  # used by tamlogctl
  python3                             # the build files look for it
)
run_packages=("${build_packages[@]}" wine64)
test_packages=(
  clang-14 clang-tidy-14 clang-format-14  # thread-safety analysis, clang-tidy, format
  libspdlog-dev pkg-config                # programs that take the client library as others do
  groff-base zsh                          # checks of the manual page and of a completion
  jq lnav rsyslog systemd systemd-journal-remote python3-jsonschema  # read what tamlogctl writes (tests/client/format)
)

fuzz_packages=(
  clang-14 libclang-rt-14-dev  # what fuzz targets are built and linked with
)

bench_packages=(
  systemd systemd-journal-remote  # journalctl, and what makes a journal of our messages
  libsystemd-dev libsqlite3-dev liblmdb-dev libspdlog-dev  # other logs and stores, as libraries
  util-linux                      # taskset
)

set_name=${1:-test}
case $set_name in
  -h | --help) usage; exit 0 ;;
  build) wanted=("${build_packages[@]}") ;;
  run) wanted=("${run_packages[@]}") ;;
  test) wanted=("${run_packages[@]}" "${test_packages[@]}" "${fuzz_packages[@]}") ;;
  fuzz) wanted=("${run_packages[@]}" "${fuzz_packages[@]}") ;;
  bench) wanted=("${run_packages[@]}" "${bench_packages[@]}") ;;
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

# Quiet unless it fails: the whole of apt's talk is shown then.
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

# Simulating tells whether the lists (absent on a fresh container, or outdated) know all packages.
lists_know() {
  apt-get -q --simulate install --no-install-recommends "$@" >/dev/null 2>&1
}

echo "packages: installing ${#missing[@]} with apt-get: ${missing[*]}"
if ! lists_know "${missing[@]}"; then
  apt update || { echo "install-packages.sh: apt-get update failed" >&2; exit 1; }
fi
if ! apt install --yes --no-install-recommends "${missing[@]}"; then
  # The lists may name versions that the archive no longer has.
  echo "packages: trying once more with fresh lists"
  apt update || { echo "install-packages.sh: apt-get update failed" >&2; exit 1; }
  apt install --yes --no-install-recommends "${missing[@]}" ||
    { echo "install-packages.sh: apt-get install failed" >&2; exit 1; }
fi
for package in "${missing[@]}"; do
  is_installed "$package" || { echo "install-packages.sh: $package is still missing" >&2; exit 1; }
done
