#!/usr/bin/env bash
# check_installed.sh: that what is installed on this machine works: the tool on the examples of the documentation, and
# the examples for agents and drivers by CMake, by pkg-config and against the static library.
set -euo pipefail
examples=/usr/share/doc/naxel-doc/examples
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

naxel compile "$examples/edge.json" >compiled.txt
naxel verify --packets 1000 "$examples/edge.json"

for example in "$examples"/*/CMakeLists.txt; do
  name=$(basename "$(dirname "$example")")
  cmake -S "$(dirname "$example")" -B "$name" -DCMAKE_BUILD_TYPE=Release >"$name.log"
  cmake --build "$name" >>"$name.log"
  echo "$name builds by CMake"
done

cat >program.cpp <<'END'
#include "naxel/agent/Agent.h"
#include "naxel/agent/Version.h"
#include <iostream>
int main() { std::cout << "libNaxel " << Naxel::versionText() << '\n'; }
END
read -ra flags <<<"$(pkg-config --cflags --libs naxel)"
g++ -std=c++20 program.cpp -o shared "${flags[@]}"
./shared
read -ra flags <<<"$(pkg-config --cflags naxel)"
g++ -std=c++20 program.cpp -o static "${flags[@]}" "$(pkg-config --variable=libdir naxel)/libNaxel.a"
./static
