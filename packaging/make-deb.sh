#!/usr/bin/env bash
# Makes the Debian package of the portable command line and client library.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: packaging/make-deb.sh BIN BUILD VERSION LICENCES OUTPUT.deb

Packs the Linux program BIN/tamlogctl, its manual page and completions, the client library of the CMake directory BUILD,
and the notices of what is compiled in, from the directory LICENCES. SOURCE_DATE_EPOCH is the time of all files.
TEXT
}

case "$#:${1:-}" in
  1:-h | 1:--help) usage; exit 0 ;;
  5:[!-]*) ;;
  *) usage >&2; exit 2 ;;
esac
bin=$(realpath "$1") build=$(realpath "$2") version=$3 licences=$(realpath "$4") output=$(realpath -m "$5")
root=$(cd "$(dirname "$0")/.." && pwd -P)
# shellcheck source=packaging/maker.env
. "$root/packaging/maker.env"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
readonly package=$work/torvane-log-tools
readonly documents=$package/usr/share/doc/torvane-log-tools
mkdir -p "$package/DEBIAN" "$documents" "$package/usr/share/man/man1" \
  "$package/usr/share/bash-completion/completions" "$package/usr/share/zsh/vendor-completions"

cmake --install "$build" --prefix "$package/usr" --component client >/dev/null
install -D -m 755 -t "$package/usr/bin" "$bin/tamlogctl"
find "$package/usr" -type f \( -name tamlogctl -o -name 'libtamlog.so*' \) -exec strip --strip-unneeded {} +
strip --strip-debug --enable-deterministic-archives "$package/usr/lib/libtamlog.a"

gzip -9n <"$root/docs/man/tamlogctl.1" >"$package/usr/share/man/man1/tamlogctl.1.gz"
"$bin/tamlogctl" completion bash >"$package/usr/share/bash-completion/completions/tamlogctl"
"$bin/tamlogctl" completion zsh >"$package/usr/share/zsh/vendor-completions/_tamlogctl"
# Compiled in; zlib, liblzma and the run-time libraries are Debian's own packages.
install -D -m 644 -t "$documents/licenses" "$licences"/{libcli11-dev,libfmt-dev,nlohmann-json3-dev}.txt
cp "$root/docs/tamlogctl.md" "$root/docs/library.md" "$documents/"
install -D -m 644 -t "$documents/examples" "$root"/examples/*
cp "$root/CHANGELOG.md" "$documents/"
gzip -9n >"$documents/changelog.gz" <<TEXT
torvane-log-tools ($version) stable; urgency=medium

  * CHANGELOG.md describes the changes of this version.

 -- $MAKER_CONTACT  $(date --utc --rfc-email --date="@$SOURCE_DATE_EPOCH")
TEXT
install -d "$package/usr/share/lintian/overrides"
cat >"$package/usr/share/lintian/overrides/torvane-log-tools" <<'TEXT'
# Program, library and headers are one package for one architecture: a copy of all of it is what a user of copied logs
# needs, and no package of Debian depends on the library.
torvane-log-tools: link-to-shared-library-in-wrong-package *
torvane-log-tools: package-name-doesnt-match-sonames *
torvane-log-tools: pkg-config-unavailable-for-cross-compilation *
TEXT
cat >"$documents/copyright" <<TEXT
Torvane Log Server
$MAKER_COPYRIGHT
License: $MAKER_LICENSE

The directory licenses holds the notices of the parts of others.
TEXT

# The versions of the libraries that the programs are linked with; needs the file debian/control.
mkdir -p "$work/debian"
printf 'Source: torvane-log-tools\nPackage: torvane-log-tools\nArchitecture: amd64\n' >"$work/debian/control"
depends=$(cd "$work" && dpkg-shlibdeps -O --ignore-missing-info -l"$package/usr/lib" "$package/usr/bin/tamlogctl" \
  "$package"/usr/lib/libtamlog.so.*.*.* 2>/dev/null | sed -n 's/^shlibs:Depends=//p')
[[ -n $depends ]] || { echo 'make-deb.sh: dpkg-shlibdeps found no libraries' >&2; exit 1; }
find "$package" -type d -exec chmod 755 {} +
find "$package/usr" -type f -exec chmod u=rw,go=r {} +
chmod 755 "$package/usr/bin/tamlogctl"
cat >"$package/DEBIAN/control" <<TEXT
Package: torvane-log-tools
Version: $version
Architecture: amd64
Maintainer: $MAKER_CONTACT
Homepage: $MAKER_HOMEPAGE
Depends: $depends
Section: utils
Priority: optional
Installed-Size: $(du -sk --apparent-size "$package/usr" | cut -f 1)
Description: command line and client library of the Torvane Log Server
 tamlogctl reads, searches, checks, repairs and converts log files that were
 copied from a machine with the Torvane Log Server. The client library does
 the same for programs in C and C++.
TEXT
# By it, packages that are linked with the library depend on this one.
soname=$(find "$package/usr/lib" -type l -name 'libtamlog.so.*' -printf '%f\n')
echo "libtamlog ${soname##*.} torvane-log-tools (>= $version)" >"$package/DEBIAN/shlibs"
# Shared libraries outside of the loader's own cache need its update, before and after.
echo 'activate-noawait ldconfig' >"$package/DEBIAN/triggers"
(cd "$package" && find usr -type f -print0 | LC_ALL=C sort -z | xargs -0 md5sum >DEBIAN/md5sums)
chmod 644 "$package"/DEBIAN/*
find "$package" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
dpkg-deb --root-owner-group -Zxz --build "$package" "$output" >/dev/null
