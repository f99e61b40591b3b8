#!/usr/bin/env bash
# An Open vSwitch of one's own, without privileges and beside whatever the machine runs.
#
#   ovs.sh fetch ROOT           unpacks Debian's packages below ROOT, unless they are there; 77 where they cannot be had
#   ovs.sh start ROOT DIR       starts it with a bridge br0 and ports 1 and 2; all that it makes is in DIR
#   ovs.sh crash DIR            kills ovs-vswitchd, and nothing else
#   ovs.sh resume ROOT DIR      starts ovs-vswitchd again, which then has no flows
#   ovs.sh stop DIR             kills all of it
#   ovs.sh run ROOT DIR TOOL... one of its tools (ovs-ofctl, ovs-appctl, ovs-vsctl, ovsdb-client)
#
# Packets stay within the process: the bridge is of the type dummy. DIR is to be short, since the names of sockets
# take 107 bytes.
set -euo pipefail

fail() { echo "ovs.sh: $*" >&2; exit 1; }

fetch() {
  local root=$1
  [[ -x $root/usr/lib/openvswitch-switch/ovs-vswitchd ]] && return 0
  local packages
  packages=$(mktemp -d)
  # The name is put in now: it is gone when the program ends.
  trap "rm -rf '$packages'" EXIT
  if ! command -v apt-get dpkg >/dev/null ||
     ! (cd "$packages" && apt-get -q download openvswitch-switch openvswitch-common) >/dev/null 2>&1; then
    echo "the packages of Open vSwitch cannot be had"
    exit 77
  fi
  mkdir -p "$root"
  local package
  for package in "$packages"/*.deb; do dpkg -x "$package" "$root"; done
  if ldd "$root/usr/lib/openvswitch-switch/ovs-vswitchd" | grep 'not found'; then
    rm -rf "$root"
    echo "libraries of Open vSwitch are not installed: libunbound8 libcap-ng0 libnuma1 libxdp1 libbpf1"
    exit 77
  fi
}

# Waits until a command succeeds, for ten seconds.
await() {
  local i
  for ((i = 0; i < 200; i++)); do
    "$@" >/dev/null 2>&1 && return 0
    sleep 0.05
  done
  fail "this does not come about: $*"
}

vswitchd() {
  local root=$1 dir=$2
  OVS_RUNDIR=$dir OVS_LOGDIR=$dir "$root/usr/lib/openvswitch-switch/ovs-vswitchd" --enable-dummy --disable-system \
    "unix:$dir/db.sock" --pidfile="$dir/ovs-vswitchd.pid" --detach --no-chdir --log-file="$dir/vswitchd.log" 2>/dev/null
}

start() {
  local root=$1 dir=$2
  mkdir -p "$dir"
  export OVS_RUNDIR=$dir OVS_LOGDIR=$dir OVS_DBDIR=$dir
  "$root/usr/bin/ovsdb-tool" create "$dir/conf.db" "$root/usr/share/openvswitch/vswitch.ovsschema"
  "$root/usr/sbin/ovsdb-server" "$dir/conf.db" --remote="punix:$dir/db.sock" --pidfile="$dir/ovsdb-server.pid" \
    --unixctl="$dir/ovsdb.ctl" --detach --no-chdir --log-file="$dir/ovsdb.log" 2>/dev/null
  local vsctl=("$root/usr/bin/ovs-vsctl" "--db=unix:$dir/db.sock")
  "${vsctl[@]}" --no-wait init
  vswitchd "$root" "$dir"
  # Without fail-mode secure a bridge begins with a flow that lets everything through.
  "${vsctl[@]}" add-br br0 -- set bridge br0 datapath-type=dummy fail-mode=secure \
    -- add-port br0 p1 -- set interface p1 type=dummy ofport_request=1 \
    -- add-port br0 p2 -- set interface p2 type=dummy ofport_request=2
  await "$0" run "$root" "$dir" ovs-ofctl show br0
}

# end DIR NAME: by the number that the program has written, and only while that is still its number.
end() {
  local file=$1/$2.pid pid
  [[ -s $file ]] || return 0
  pid=$(<"$file")
  [[ $(cat "/proc/$pid/comm" 2>/dev/null) == "$2" ]] && kill -9 "$pid"
  rm -f "$file" "$1/$2.$pid.ctl"
}

command=${1:-}
shift || true
case $command in
  fetch) fetch "$1" ;;
  start) start "$1" "$2" ;;
  crash) end "$1" ovs-vswitchd ;;
  resume) vswitchd "$1" "$2"; await "$0" run "$1" "$2" ovs-ofctl show br0 ;;
  stop) end "$1" ovs-vswitchd; end "$1" ovsdb-server ;;
  run)
    root=$1 dir=$2 tool=$3
    shift 3
    OVS_RUNDIR=$dir exec "$root/usr/bin/$tool" "$@" ;;
  *) sed -n '2,13s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac
