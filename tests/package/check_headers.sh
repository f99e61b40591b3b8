#!/usr/bin/env bash
# check_headers.sh <prefix> <compiler> [all]: compiles the front headers by themselves, or all that are installed,
# and holds how much an agent and a driver read against bounds: own headers, and lines of them behind the
# preprocessor.
set -euo pipefail
prefix=$1 compiler=$2 which=${3:-front}
cd "$prefix/include/libnaxel"
failed=0

work=$prefix/../headers
rm -rf "$work"
mkdir -p "$work"
front=(naxel/agent/Agent.h naxel/driver/Drivers.h naxel/control/NaxelRootSm.h)
[[ $which == all ]] && mapfile -t front < <(find . -name '*.h' -printf '%P\n')
for header in "${front[@]}"; do
  printf '#include "%s"\n' "$header" >"$work/$(tr / - <<<"${header%.h}").cpp"
done
if ! printf '%s\0' "$work"/*.cpp |
  xargs -0 -n 2 -P 2 "$compiler" -std=c++20 -I. -Wall -Wextra -Wpedantic -fsyntax-only; then
  echo "a header does not compile by itself"
  failed=1
fi

# at_most <header> <own headers> <own lines>
at_most() {
  local header=$1 headers=$2 lines=$3 unit found
  unit=$work/$(tr / - <<<"${header%.h}").cpp
  found=$("$compiler" -std=c++20 -I. -MM "$unit" | tr -s ' \\' '\n' | grep -c '\.h$')
  if ((found > headers)); then
    echo "$header reaches $found headers of ours, more than $headers"
    failed=1
  fi
  found=$("$compiler" -std=c++20 -I. -E "$unit" |
    awk '/^# [0-9]+ "/ { own = $3 !~ /^"\// } !/^#/ && own && NF { n++ } END { print n + 0 }')
  if ((found > lines)); then
    echo "$header brings $found lines of ours, more than $lines"
    failed=1
  fi
}
at_most naxel/agent/Agent.h 38 2990
at_most naxel/driver/Drivers.h 36 2970
at_most naxel/control/NaxelRootSm.h 30 2530
exit $failed
