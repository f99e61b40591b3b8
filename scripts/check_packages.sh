#!/usr/bin/env bash
# check_packages.sh FOLDER: what must hold of the packages there.
#
# lintian finds nothing to say. The interface of the library is that of packaging/libnaxel.abi.xz, or grew beyond it.
# Packages built a second time, at another place, are the same bytes. And in a root that has nothing but a compiler and
# the packages, the tool runs, and both examples and a program against the static library build and run.
set -euo pipefail
sources=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
packages=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "check: lintian"
lintian --allow-root --display-info --fail-on error,warning,info --suppress-tags bad-distribution-in-changes-file,initial-upload-closes-no-bugs \
  "$packages"/*.changes

echo "check: interface"
"$sources/scripts/abi.sh" "$packages" "$work/now.abi"
xz -dc "$sources/packaging/libnaxel.abi.xz" >"$work/before.abi"
abidiff --no-added-syms "$work/before.abi" "$work/now.abi" || {
  echo "check: the interface has changed; raise the version and write packaging/libnaxel.abi.xz anew (scripts/abi.sh)"
  exit 1
}

echo "check: the same bytes at another place"
mkdir "$work/sources-elsewhere"
tar -C "$sources" -c --exclude=./build . | tar -x -C "$work/sources-elsewhere"
(cd "$work/sources-elsewhere" && scripts/package.sh "$work/again" >"$work/again.log" 2>&1)
for package in "$packages"/*.deb; do
  cmp "$package" "$work/again/$(basename "$package")"
done

echo "check: a root of nothing but a compiler and the packages"
mmdebstrap --quiet --variant=minbase --include=g++,cmake,make,pkg-config bookworm "$work/root"
mkdir "$work/root/packages"
cp "$packages"/*.deb "$work/root/packages"
cp "$sources/scripts/check_installed.sh" "$work/root"
chroot "$work/root" sh -c 'apt-get install -y -qq /packages/*.deb >/dev/null 2>&1 && /check_installed.sh'
echo "check: passed"
