#!/usr/bin/env bash
# The recursive watcher against inotifywait -r, measured in the same run on one generated tree
# (20,000 folders, 200,000 files): time until the watch is established, files reported of a
# burst (1,000 new folders of 10 files plus 40,000 files in existing folders) and when the last
# arrived, resident memory, and CPU used over 10 idle seconds. BENCH_DIR keeps the tree between
# runs.
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
"$top/scripts/setup.sh"
if ! command -v inotifywait >/dev/null || ! command -v bc >/dev/null; then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -q && $sudo apt-get install -y -q inotify-tools bc
fi
"$top/scripts/build.sh" "$top/build" "" watch-probe >/dev/null
probe="$top/build/bench/watch-probe"
work="${BENCH_DIR:-$(mktemp -d /tmp/vexa-bench-XXXXXX)}"
tree="$work/tree"
if [ ! -d "$tree" ]; then
  echo "making the tree in $tree ..."
  "$probe" make-tree "$tree" 20000 200000
fi

now() { date +%s.%N; }
wait_for() {  # wait_for FILE PATTERN SECONDS
  local deadline=$(( $(date +%s) + $3 ))
  until grep -q "$2" "$1" 2>/dev/null; do
    [ "$(date +%s)" -lt "$deadline" ] || return 1
    sleep 0.05
  done
}
cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
idle_cpu() {  # idle_cpu PID: CPU ticks used over 10 idle seconds
  local before; before=$(cpu_ticks "$1"); sleep 10; echo $(( $(cpu_ticks "$1") - before ))
}
rss_kb() { awk '/VmRSS/ {print $2}' "/proc/$1/status"; }

# --- vexa-monitor -------------------------------------------------------------------------
"$probe" watch "$tree" > "$work/ours.log" &
ours=$!
wait_for "$work/ours.log" '^ready' 300
ours_setup=$(sed -n 's/^ready seconds=\([0-9.]*\).*/\1/p' "$work/ours.log")
ours_watches=$(sed -n 's/.*watches=\([0-9]*\).*/\1/p' "$work/ours.log")
ours_rss=$(sed -n 's/.*rss_kb=\([0-9-]*\).*/\1/p' "$work/ours.log")
ours_idle=$(idle_cpu "$ours")
"$probe" burst "$tree" > "$work/burst-ours.log"
made=$(sed -n 's/.*files=\([0-9]*\).*/\1/p' "$work/burst-ours.log")
burst_end=$(sed -n 's/.*end=\([0-9.]*\).*/\1/p' "$work/burst-ours.log")
deadline=$(( $(date +%s) + 60 ))
while :; do
  ours_seen=$(tail -n 1 "$work/ours.log" | sed -n 's/^batch files=\([0-9]*\).*/\1/p')
  [ "${ours_seen:-0}" -ge "$made" ] || [ "$(date +%s)" -ge "$deadline" ] && break
  sleep 0.2
done
ours_last=$(tail -n 1 "$work/ours.log" | sed -n 's/.* at=\([0-9.]*\)/\1/p')
ours_new=$(tail -n 1 "$work/ours.log" | sed -n 's/.*new_folder_files=\([0-9]*\).*/\1/p')
kill "$ours"; wait "$ours" 2>/dev/null || true

# --- inotifywait -r -----------------------------------------------------------------------
start=$(now)
inotifywait -m -r -e create --format '%e %w%f' "$tree" > "$work/iw.out" 2> "$work/iw.err" &
iw=$!
wait_for "$work/iw.err" 'Watches established' 300
iw_setup=$(echo "$(now) - $start" | bc)
iw_rss=$(rss_kb "$iw")
iw_idle=$(idle_cpu "$iw")
"$probe" burst "$tree" > "$work/burst-iw.log"
iw_made=$(sed -n 's/.*files=\([0-9]*\).*/\1/p' "$work/burst-iw.log")
iw_end=$(sed -n 's/.*end=\([0-9.]*\).*/\1/p' "$work/burst-iw.log")
previous=-1
while :; do  # until its output stops growing for a second
  count=$(grep -c '^CREATE ' "$work/iw.out" || true)
  [ "$count" -eq "$previous" ] && break
  previous=$count; sleep 1
done
iw_last=$(stat -c %.6Y "$work/iw.out")
iw_seen=$(grep -c '^CREATE /' "$work/iw.out" || true)  # files only ("CREATE,ISDIR" are folders)
iw_new=$(grep -c '^CREATE /.*/p0/new' "$work/iw.out" || true)
kill "$iw"; wait "$iw" 2>/dev/null || true

ratio() { echo "scale=3; $1 / $2" | bc; }
cat <<REPORT

tree: 20,000 folders, 200,000 files ($ours_watches watches)
                                   vexa-monitor   inotifywait -r   ratio (ours/theirs)
time to establish the watch (s)    $ours_setup          $iw_setup            $(ratio "$ours_setup" "$iw_setup")
burst files reported / made        $ours_seen / $made    $iw_seen / $iw_made
  of them in the 1,000 new folders $ours_new / 10000    $iw_new / 10000
last file delivered after burst (s) $(echo "$ours_last - $burst_end" | bc)   $(echo "$iw_last - $iw_end" | bc)   (ours includes the 1.0 s batching latency)
resident memory (KiB)              +$ours_rss (watcher)  $iw_rss (whole process)
per 10,000 watched folders (KiB)   $(( ours_rss * 10000 / ours_watches ))
CPU ticks over 10 idle seconds     $ours_idle              $iw_idle
REPORT
