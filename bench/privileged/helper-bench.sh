#!/usr/bin/env bash
# The privileged helper's costs, measured in one run on a private bus: the median round trip of
# 1,000 connection checks, and a find over a large tree through the helper against find run
# directly. TREE names the tree (default: the event-stream benchmark's, made if missing); BUILD
# the build folder used (default: build).
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
build="${BUILD:-$top/build}"
"$top/scripts/setup.sh"
"$top/scripts/build.sh" "$build" "" vexa-helper helper-client watch-probe >/dev/null
tree="${TREE:-/tmp/vexa-bench/tree}"
[ -d "$tree" ] || "$build/bench/watch-probe" make-tree "$tree" 20000 200000

work=$(mktemp -d)
cat > "$work/bus.conf" <<CONF
<busconfig><type>session</type><listen>unix:path=$work/socket</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
CONF
dbus-daemon --config-file="$work/bus.conf" --nofork --print-address=1 > "$work/address" &
bus=$!
wait_for() {  # wait_for COMMAND...: up to 10 s
  for _ in $(seq 200); do "$@" && return 0; sleep 0.05; done
  echo "helper-bench: gave up waiting for: $*" >&2; exit 1
}
wait_for test -s "$work/address"
export VEXA_HELPER_BUS_ADDRESS="$(head -n 1 "$work/address")"
"$build/tools/vexa-helper/vexa-helper" > "$work/helper.log" &
helper=$!
wait_for grep -q ready "$work/helper.log"

client="$build/tests/privileged/helper-client"
echo "round trips (code 0 x 1000): $("$client" round-trips 1000)"
through=$("$client" find "$tree")
start=$(date +%s.%N)
direct_files=$(/usr/bin/find "$tree" -type f | wc -l)
direct=$(echo "$(date +%s.%N) - $start" | bc)
through_seconds=$(echo "$through" | sed -n 's/.*seconds=\([0-9.]*\).*/\1/p')
echo "find through the helper: $through"
echo "find directly:           files=$direct_files seconds=$direct"
echo "ratio (helper / direct): $(echo "scale=3; $through_seconds / $direct" | bc)"
kill "$helper" "$bus"
rm -rf "$work"
