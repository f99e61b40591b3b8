#!/usr/bin/env bash
# abi.sh PACKAGES OUT: writes down the binary interface of the library in the packages of a folder, as far as the installed
# headers show it.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for package in "$1"/libnaxel0.1_*.deb "$1"/libnaxel0.1-dbgsym_*.deb "$1"/libnaxel-dev_*.deb; do
  dpkg-deb -x "$package" "$work"
done
library=$(echo "$work"/usr/lib/*/libNaxel.so.*.*.*)
abidw --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs --drop-private-types \
  --headers-dir "$work/usr/include/libnaxel" --debug-info-dir "$work/usr/lib/debug" "$library" >"$2"
