#!/usr/bin/env bash
# demo.sh [naxel]: shows the tool at work on the sample of examples/. The argument is the program, by
# default that of the release build.
set -euo pipefail
cd "$(dirname "$0")/.."
naxel=$(realpath "${1:-build/release/bin/naxel}")

run() {
  printf '\n$ naxel %s\n' "$*"
  "$naxel" "$@"
}
explain() {
  printf '\n# %s\n' "$1"
  shift
  run explain "$@" examples/edge.json
}

printf '# What the sample compiles to\n'
run compile examples/edge.json

explain 'A customer opens a connection to a web server' \
  --src 192.0.2.77 --dst 203.0.113.17 --proto 6 --sport 40000 --dport 443 --tcp syn
explain 'SSH from the half of the network that is not excepted, and from the other half' \
  --src 192.0.2.100 --dst 203.0.113.5 --proto 6 --sport 50000 --dport 22 --tcp syn --acl edge-in
run explain --src 192.0.2.200 --dst 203.0.113.5 --proto 6 --sport 50000 --dport 22 --tcp syn \
  --acl edge-in examples/edge.json
explain 'Our own addresses arrive from outside' \
  --src 2001:db8:100::1 --dst 2001:db8:100:10::80 --proto 6 --dport 80 --tcp syn

printf '\n# The loaded tables against the rules, evaluated in order\n'
run verify --packets 100000 examples/edge.json
