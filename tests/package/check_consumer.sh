#!/usr/bin/env bash
# check_consumer.sh <cmake> <build tree> <consumer> <compiler> <library folder>: installs the build
# tree, then builds and runs the consumer against the installation, through CMake and pkg-config.
set -euo pipefail
cmake=$1 build=$2 consumer=$3 compiler=$4 libdir=$5

work=$build/package
prefix=$work/prefix
rm -rf "$work"
mkdir -p "$work"

"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"

"$cmake" -S "$consumer" -B "$work/consumer" -G Ninja \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log"
"$cmake" --build "$work/consumer"
"$work/consumer/consumer"

export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
read -ra flags < <(pkg-config --cflags --libs naxel)
"$compiler" -std=c++20 -DNAXEL_EXPECTED_VERSION="\"$(pkg-config --modversion naxel)\"" \
  "$consumer/main.cpp" -o "$work/by_pkg_config" "${flags[@]}"
LD_LIBRARY_PATH=$prefix/$libdir "$work/by_pkg_config"

# The installed program proves the driver that has been built as a shared object, by either way.
read -ra flags < <(pkg-config --cflags --libs naxel-testing)
"$compiler" -std=c++20 -shared -fPIC "$consumer/driver.cpp" -o "$work/driver.so" "${flags[@]}"
if [[ -x $prefix/bin/naxel-conformance ]]; then
  for driver in "$work/consumer/driver.so" "$work/driver.so"; do
    "$prefix/bin/naxel-conformance" --scripts 10 "$driver" >"$work/proof.txt" ||
      { cat "$work/proof.txt" && exit 1; }
  done
fi

# The installed tool finds the installed library by itself.
if [[ -x $prefix/bin/naxel ]]; then
  "$prefix/bin/naxel" --help >"$work/help.txt"
  for part in man/man1/naxel.1 man/man1/naxel-compile.1 bash-completion/completions/naxel \
    zsh/site-functions/_naxel naxel/schema/naxel-tables.schema.json; do
    [[ -f $prefix/share/$part ]] || { echo "share/$part is not installed" && exit 1; }
  done
fi
