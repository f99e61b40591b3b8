#!/usr/bin/env bash
# bench-ovs.sh BUILD ROOT: rules in Open vSwitch as plain flows, as conjunctive matches and as labels, over generated
# lists of several sizes and over the files of the folder that NAXEL_BENCH_SETS names.
set -euo pipefail
build=$1 root=$2
here=$(dirname "$(realpath "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
groups() { "$build/bin/naxel" gen --quiet --style groups --acls 1 --lists "$1" --rules "$2" --list-size "$3" -o "$work/groups:$2.json"; }
groups 30 100 8
groups 60 300 10
groups 200 2000 20
for style in acl fw ipc; do "$build/bin/naxel" gen --quiet --style $style --rules 1000 -o "$work/$style:1000"; done
files=("$work"/groups:{100,300,2000}.json "$work"/{acl,fw,ipc}:1000)
[[ -z ${NAXEL_BENCH_SETS:-} ]] || files+=("$NAXEL_BENCH_SETS"/*)
"$build/bin/naxel_bench_ovs" "$here/ovs.sh" "$root" "${files[@]}"
