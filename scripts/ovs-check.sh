#!/usr/bin/env bash
# ovs-check.sh BUILD [SET...]: the long form of the tests of the driver for Open vSwitch. Rule sets of files, and ten
# configurations of lists with an ACL of each family, are loaded one after the other into one bridge, which is then asked about
# PACKETS packets (1000) of each. Then CHANGES (100) random changes of one rule, each as one bundle and each followed by
# 200 packets, with agents that are killed and switches that are restarted in between, for each seed of SEEDS (1 2 3).
set -euo pipefail
build=$(realpath "$1")
shift
here=$(dirname "$(realpath "$0")")
naxel=$build/bin/naxel root=$(dirname "$build")/openvswitch packets=${PACKETS:-1000}
"$here/ovs.sh" fetch "$root"

work=$(mktemp -d /tmp/nxovs-XXXXXX)
trap '"$here/ovs.sh" stop "$work/b"; rm -rf "$work"' EXIT
"$here/ovs.sh" start "$root" "$work/b"
bridge=(--ovs "$work/b/br0.mgmt" --set-frags --ignore-actions)

check() {
  local name=$1
  shift
  printf '%-28s ' "$name"
  "$naxel" load "${bridge[@]}" --quiet "$@"
  "$naxel" load "${bridge[@]}" "$@" 2>/dev/null | sed 's/^br0: \(.* in force\).*/\1/' | tr '\n' ' '
  "$naxel" verify "${bridge[@]}" --packets "$packets" "$@" 2>/dev/null | tail -1
}

for set in "$@"; do check "$(basename "$set")" "$set"; done
for seed in 1 2 3 4 5 6 7 8 9 10; do
  overlap=$(printf 'nested\ncrossing\nmixed' | sed -n "$((seed % 3 + 1))p")
  "$naxel" gen --quiet --style groups --overlap "$overlap" --lists $((20 * seed)) --rules $((100 * seed)) --acls 1 \
    --seed "$seed" -o "$work/v4.json"
  "$naxel" gen --quiet --style groups --overlap "$overlap" --lists $((10 * seed)) --rules $((60 * seed)) --acls 1 \
    --seed "$seed" --ipv6 -o "$work/v6.json"
  sed -i 's/"acl-0"/"acl-6"/; s/"list-/"six-/g' "$work/v6.json"
  check "lists $seed, $overlap" "$work/v4.json" "$work/v6.json"
done

for seed in ${SEEDS-1 2 3}; do
  NAXEL_OVS_ROOT=$root NAXEL_OVS_CHANGES=${CHANGES:-100} NAXEL_OVS_PACKETS=200 NAXEL_OVS_SEED=$seed \
    "$build/bin/ovs_tests" --gtest_filter='*EveryChange*' --gtest_brief=1
done
