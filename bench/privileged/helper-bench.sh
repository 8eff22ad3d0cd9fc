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

. "$top/bench/privileged/private-helper.sh"

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
kill $helper_pids
rm -rf "$helper_work"
