#!/usr/bin/env bash
# package.sh [FOLDER]: builds the Debian packages of the committed sources and puts them into FOLDER, build/packages by
# default. The bytes depend on the sources alone: the place and the time of the build leave no trace.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
out=${1:-build/packages}
version=$(sed -n '1s/.*(\(.*\)).*/\1/p' debian/changelog)

rm -rf "$out"
mkdir -p "$out/libnaxel-$version"
out=$(realpath "$out")
if git rev-parse --git-dir >/dev/null 2>&1; then
  [[ -z $(git status --porcelain) ]] || echo "package: what is not committed is left out" >&2
  git archive HEAD | tar -x -C "$out/libnaxel-$version"
else
  tar -c --exclude=./build . | tar -x -C "$out/libnaxel-$version"
fi

cd "$out/libnaxel-$version"
header=$(sed -n 's/^#define NAXEL_VERSION_\(MAJOR\|MINOR\|PATCH\) //p' src/naxel/agent/Version.h | paste -sd.)
if [[ ${version%%[-+~]*} != "$header" ]]; then
  echo "package: debian/changelog says version $version, Version.h says $header" >&2
  exit 1
fi
DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-} parallel=$(nproc)" dpkg-buildpackage -us -uc -b
cd "$out"
rm -rf "libnaxel-$version"
ls -1 "$out"/*.deb
