#!/usr/bin/env bash
# memcheck.sh <build tree>: runs the fast test programs of a build under valgrind. Each program runs as
# a whole, since starting valgrind costs more than most tests.
set -euo pipefail
build=$1

if [[ ! -s $build/fast-tests.txt ]]; then
  echo "memcheck: $build lists no fast tests" >&2
  exit 1
fi

export NAXEL_THINNING=25

while read -r program; do
  log=$build/memcheck-$(basename "$program").log
  echo "memcheck: $(basename "$program")"
  # A death test forks: its child dies on purpose and is none of our concern. A program that brings its
  # own operator new keeps it.
  if ! valgrind --quiet --leak-check=full --error-exitcode=9 --child-silent-after-fork=yes \
      --soname-synonyms=somalloc=nouserintercepts --suppressions=scripts/memcheck.supp \
      "$program" --gtest_brief=1 >"$log" 2>&1; then
    cat "$log"
    exit 1
  fi
done <"$build/fast-tests.txt"
