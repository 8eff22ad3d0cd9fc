#!/usr/bin/env bash
# The single-item watch queue against inotifywait -m, one after the other on one folder: CPU
# used by the watcher over a burst of COUNT (default 100,000) creates and deletes, and how long
# after the burst ended its last call-back (or line) came.
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
count="${COUNT:-100000}"
if ! command -v inotifywait >/dev/null; then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -q && $sudo apt-get install -y -q inotify-tools
fi
build="${BUILD_DIR:-$top/build}"
"$top/scripts/build.sh" "$build" "" queue-probe >/dev/null
probe="$build/bench/queue-probe"
work="$(mktemp -d /tmp/vexa-queue-bench-XXXXXX)"
trap 'rm -rf "$work"' EXIT
mkdir "$work/dir"

cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
wait_for() {  # wait_for FILE PATTERN
  for _ in $(seq 200); do grep -q "$2" "$1" 2>/dev/null && return 0; sleep 0.05; done
  return 1
}
settle() {  # settle FILE: waits until FILE stopped growing for a second
  local size=-1
  while [ "$(stat -c %s "$1")" != "$size" ]; do size=$(stat -c %s "$1"); sleep 1; done
}
# run NAME PID LOG: the burst under an established watcher, then CPU ticks and the last time.
measure() {
  local pid="$1" log="$2" before end
  before=$(cpu_ticks "$pid")
  end=$("$probe" burst "$work/dir" "$count" | sed -n 's/^end=//p')
  settle "$log"
  echo "$(( $(cpu_ticks "$pid") - before )) $end"
}

"$probe" watch "$work/dir" > "$work/ours.log" &
ours=$!
wait_for "$work/ours.log" '^ready'
read -r ours_ticks end < <(measure "$ours" "$work/ours.log")
ours_last=$(tail -n 1 "$work/ours.log" | sed -n 's/.* at=//p')
ours_calls=$(grep -c '^callback' "$work/ours.log" || true)
kill "$ours"; wait "$ours" 2>/dev/null || true
ours_delay=$(awk -v a="$ours_last" -v b="$end" 'BEGIN {printf "%.3f", a - b}')

inotifywait -m -e create,delete --timefmt '%s' --format '%e %f' "$work/dir" \
  > "$work/iw.log" 2> "$work/iw.err" &
iw=$!
wait_for "$work/iw.err" 'Watches established'
read -r iw_ticks end < <(measure "$iw" "$work/iw.log")
iw_done=$(date +%s.%N)
iw_lines=$(wc -l < "$work/iw.log")
kill "$iw"; wait "$iw" 2>/dev/null || true
# inotifywait stamps no sub-second times: its delay is bounded by the settling second.
iw_delay=$(awk -v a="$iw_done" -v b="$end" 'BEGIN {printf "%.3f", a - b - 1}')

echo "creates+deletes: $count"
echo "queue:       cpu_ticks=$ours_ticks callbacks=$ours_calls last_callback_after_s=$ours_delay"
echo "inotifywait: cpu_ticks=$iw_ticks lines=$iw_lines last_line_after_s<=$iw_delay"
awk -v a="$ours_ticks" -v b="$iw_ticks" \
  'BEGIN {if (b > 0) printf "cpu ratio queue/inotifywait: %.3f\n", a / b}'
