#!/usr/bin/env bash
# bench.sh <build folder> <results folder> [options]: runs the benchmarks, prints their tables, and keeps
# all results as JSON under the name of the machine and the commit. Options are those of Google Benchmark.
set -euo pipefail
build=$1
results=$2
shift 2

commit=$(git rev-parse --short HEAD 2>/dev/null || echo unknown)
git diff --quiet HEAD 2>/dev/null || commit+=-modified
mkdir -p "$results"
file=$results/$(uname -n)-$commit.json

"$build/bin/naxel_bench" --benchmark_repetitions="${REPETITIONS:-5}" \
  --benchmark_out="$file" --benchmark_out_format=json "$@"
echo "all results: $file"
