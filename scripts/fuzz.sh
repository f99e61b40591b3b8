#!/usr/bin/env bash
# fuzz.sh <build tree> [seconds] [jobs]: runs every fuzzer of a build for that time each, from its
# corpus on. What it comes across goes to <build tree>/fuzz, which every run begins anew: reading old
# inputs again would take most of a short one.
set -euo pipefail
build=$(realpath "$1")
seconds=${2:-60}
jobs=${3:-1}
cd "$(dirname "$0")/../fuzz"

# Runs one fuzzer; prints its last figures, or what it found.
run() {
  local name=$1 scratch=$build/fuzz/$1
  rm -rf "$scratch"
  mkdir -p "$scratch/inputs" "$scratch/found"
  local options=(-max_total_time="$seconds" -max_len=4096 -timeout=20 -rss_limit_mb=2048
    -artifact_prefix="$scratch/found/" -print_final_stats=1)
  if [[ -f $name.dict ]]; then options+=(-dict="$name.dict"); fi
  if UBSAN_OPTIONS=print_stacktrace=1 "$build/bin/$name" "${options[@]}" "$scratch/inputs" \
      "corpus/$name" >"$scratch/log" 2>&1; then
    echo "$name: $(sed -n 's/^Done \(.*\)/\1/p' "$scratch/log")"
  else
    tail -n 60 "$scratch/log"
    echo "$name: failed, see $scratch/log"
    find "$scratch/found" -type f -printf "$name: the input is %p\\n"
    return 1
  fi
}
export -f run
export build seconds

printf '%s\0' *Fuzz.cpp | sed -z 's/[.]cpp$//' |
  xargs -0 -P "$jobs" -n 1 bash -euo pipefail -c 'run "$1"' run
