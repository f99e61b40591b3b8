#!/usr/bin/env bash
# memcheck.sh <build tree> [jobs]: runs the fast test programs of a build under valgrind, some at a time. Each program
# runs as a whole, since starting valgrind costs more than most tests.
set -euo pipefail
export build=$1 NAXEL_THINNING=25

if [[ ! -s $build/fast-tests.txt ]]; then
  echo "memcheck: $build lists no fast tests" >&2
  exit 1
fi

# A death test forks: its child dies on purpose and is none of our concern. A program that brings its own operator new
# keeps it.
check() {
  local name
  name=$(basename "$1")
  local log=$build/memcheck-$name.log
  if valgrind --quiet --leak-check=full --error-exitcode=9 --child-silent-after-fork=yes \
      --soname-synonyms=somalloc=nouserintercepts --suppressions=scripts/memcheck.supp \
      "$1" --gtest_brief=1 >"$log" 2>&1; then
    echo "memcheck: $name is clean"
  else
    cat "$log"
    echo "memcheck: $name fails"
    return 1
  fi
}
export -f check

xargs -a "$build/fast-tests.txt" -d '\n' -P "${2:-1}" -I{} bash -euo pipefail -c 'check {}'
