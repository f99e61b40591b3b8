#!/usr/bin/env bash
# demo.sh AGENT: takes the agent through a life: start, change, an error, a cancel, rules that do not fit, stop.
# What it says about the chips comes in no particular order, so it is shown sorted.
set -euo pipefail
agent=$(realpath "$1")
here=$(dirname "$(realpath "$0")")
work=$(mktemp -d)
trap '[[ -z ${pid:-} ]] || kill "$pid" || true; rm -rf "$work"' EXIT
cd "$work"
cp "$here/agent.conf" .

: >log
"$agent" agent.conf metrics.prom >log 2>trace &
pid=$!
told=0

# says WHAT LINES: waits until the agent has said so many lines more, and shows them.
says() {
  for ((tries = 0; $(wc -l <log) < told + $2; ++tries)); do
    ((tries < 600)) || { echo "the agent says nothing"; cat log trace; exit 1; }
    sleep 0.05
  done
  echo "$1"
  tail -n +$((told + 1)) log | sort | sed 's/^/  /'
  told=$(wc -l <log)
}

says start 2
sed -i 's/80-89/80-99/' agent.conf
kill -HUP "$pid"
says "other ports" 2
echo '30 permit src 10.0.0.0/33' >>agent.conf
kill -HUP "$pid"
says "an error in the file" 1
sed -i '$d' agent.conf
# Both signals are there when the agent goes on.
kill -STOP "$pid"
kill -HUP "$pid"
kill -USR1 "$pid"
kill -CONT "$pid"
says "a cancel" 2
for port in {1..8}; do sed -i "/^acl edge/a $((100 + port)) permit proto 17 dport $((2 * port))" agent.conf; done
kill -HUP "$pid"
says "too many rules for chip 1" 2
kill -TERM "$pid"
wait "$pid"
pid=
says stop 1
echo "metrics, but for times"
grep -e 'kicks_total.*"1"' -e '{.*aclEntries' -e 'used.*dstPort' -e 'denyAll' -e '^naxel_waiting' metrics.prom |
  sed 's/^/  /'
