#!/usr/bin/env bash
# demo-ovs.sh [naxel [root]]: shows rules in force in an Open vSwitch of its own: what it does with packets, a change
# of the rules, and the flows that this changes. The arguments are the program, by default that of the release build,
# and where the packages are unpacked, by default beside the build.
set -euo pipefail
cd "$(dirname "$0")/.."
naxel=$(realpath "${1:-build/release/bin/naxel}")
root=$(realpath "${2:-build/openvswitch}")
ovs=$PWD/scripts/ovs.sh

work=$(mktemp -d /tmp/nxovs-XXXXXX)
trap '"$ovs" stop "$work"; rm -rf "$work"' EXIT
"$ovs" start "$root" "$work"
export OVS_RUNDIR=$work
cp examples/branch.rules "$work/rules"
cd "$work"

run() {
  printf '\n$ naxel %s\n' "$*"
  "$naxel" "$@" 2>/dev/null || printf 'exit %d\n' $?
}
# Without the one that every change replaces.
flows() { "$ovs" run "$root" "$work" ovs-ofctl -O OpenFlow14 --no-stats dump-flows br0 | sed '/dl_type=0xffff/d; s/^ cookie=[^,]*, //' | sort; }
trace() {
  printf '\n# %s\n' "$1"
  "$ovs" run "$root" "$work" ovs-appctl ofproto/trace br0 "in_port=1,$2" | grep -E '^(11\.|Megaflow|Datapath)'
}

printf '# Rules of a branch office go into bridge br0, and the run stays\n'
printf '\n$ naxel load --ovs br0 --set-frags --stay rules\n'
"$naxel" load --ovs br0 --set-frags --stay rules >said 2>/dev/null &
agent=$!
trap 'kill "$agent"; "$ovs" stop "$work"; rm -rf "$work"' EXIT
# says N: waits for the agent's line N, and shows it.
says() {
  local i
  for ((i = 0; i < 200; i++)); do
    (($(wc -l <said) < $1)) || break
    sleep 0.05
  done
  sed -n "$1p" said
}
says 1
trace 'The web server, from the office' tcp,nw_src=192.0.2.7,nw_dst=203.0.113.17,tcp_src=40000,tcp_dst=443
trace 'A port above the permitted ones' udp,nw_src=198.51.100.7,nw_dst=203.0.113.99,udp_src=40000,udp_dst=2000
trace 'A later fragment, which has no ports' udp,nw_src=198.51.100.7,nw_dst=203.0.113.53,nw_frag=later

printf '\n# One more rule at the end: all of TCP to one host. The flows that are new\n'
flows >before
printf '@0.0.0.0/0\t203.0.113.99/32\t0 : 65535\t0 : 65535\t0x06/0xFF\t0x0000/0x0000\n' >>rules
kill -HUP "$agent"
says 2
flows >after
diff before after | grep '^[<>]' || true

printf '\n# The switch is killed, and begins anew without flows\n'
"$ovs" crash "$work"
"$ovs" resume "$root" "$work"
for ((i = 0; i < 100; i++)); do
  [[ $(flows | wc -l) != "$(wc -l <after)" ]] || break
  sleep 0.1
done
printf '%s flows before, %s after\n' "$(wc -l <after)" "$(flows | wc -l)"
run verify --ovs br0 --packets 2000 rules
