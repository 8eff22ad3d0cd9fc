#!/usr/bin/env bash
# The Trash and application-folder figures, each against its peer in the same run:
#   size     the Trash measurement of the stream-bench tree (20,000 folders, 200,000 files)
#            against du -sB1: the same figure (du's less the root's own blocks) and the time,
#            best of 3 with the tree in the page cache;
#   empty    a Trash of ENTRIES (default 20,000) entries emptied with rm under vexa-agent, with
#            vexa-host connected: size messages sent, the agent's CPU against one du of the full
#            Trash, and how long after rm ended the last message came;
#   rescan   the application-folder watcher's rescan of 2,000 desktop entries and 200 bundles
#            against find listing the same, median of 5.
# BENCH_DIR keeps the trees between runs; BUILD_DIR is the build to use.
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
build="${BUILD_DIR:-$top/build}"
entries="${ENTRIES:-20000}"
"$top/scripts/build.sh" "$build" "" monitors-probe watch-probe vexa-agent vexa-host >/dev/null
probe="$build/bench/monitors-probe"
work="${BENCH_DIR:-$(mktemp -d /tmp/vexa-trash-bench-XXXXXX)}"
mkdir -p "$work"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  [ -n "${BENCH_DIR:-}" ] || rm -rf "$work"
}
trap cleanup EXIT
TIMEFORMAT='%R %U %S'
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {if (b > 0) printf "%.2f", a / b; else print "n/a"}'; }
best() { sort -g | head -n 1; }
median() { sort -g | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

# ---- size ----
tree="$work/tree"
if [ ! -d "$tree" ]; then
  echo "making the tree in $tree ..."
  "$build/bench/watch-probe" make-tree "$tree" 20000 200000
fi
du -sB1 "$tree" >/dev/null  # into the page cache
du_times=() ours_times=()
for _ in 1 2 3; do
  du_times+=("$( { time du -sB1 "$tree" >/dev/null; } 2>&1 | cut -d' ' -f1)")
  ours_times+=("$( { time "$probe" size "$tree" >/dev/null; } 2>&1 | cut -d' ' -f1)")
done
du_bytes=$(du -sB1 "$tree" | cut -f1)
root_bytes=$(( $(stat -c %b "$tree") * $(stat -c %B "$tree") ))
ours_bytes=$("$probe" size "$tree" | sed -n 's/^bytes=\([0-9]*\).*/\1/p')
du_best=$(printf '%s\n' "${du_times[@]}" | best)
ours_best=$(printf '%s\n' "${ours_times[@]}" | best)
echo "size: du -sB1 less the root's blocks = $(( du_bytes - root_bytes )), ours = $ours_bytes" \
  "($([ $(( du_bytes - root_bytes )) -eq "$ours_bytes" ] && echo same || echo DIFFERENT))"
echo "size: seconds du ${du_times[*]}, ours ${ours_times[*]}; best ours/du = $(ratio "$ours_best" "$du_best")"

# ---- empty ----
home="$work/home"
rm -rf "$home" "$work/sys" "$work/cache"
trash="$home/.local/share/Trash"
mkdir -p "$home/Applications" "$home/.local/share/applications" "$work/sys/applications"
"$probe" fill-trash "$trash" "$entries"
isolated=(env HOME="$home" XDG_DATA_HOME="$home/.local/share" XDG_DATA_DIRS="$work/sys"
          XDG_CACHE_HOME="$home/.cache" XDG_CONFIG_HOME="$home/.config")
du_cpu=$( { time du -sB1 "$trash/files" >/dev/null; } 2>&1 | awk '{print $2 + $3}')
"${isolated[@]}" "$build/tools/vexa-agent/vexa-agent" --port 0 --cache "$work/cache" \
  > "$work/agent.out" 2>/dev/null &
agent=$!
pids+=("$agent")
for _ in $(seq 600); do grep -q listening "$work/agent.out" && break; sleep 0.05; done
port="$(sed -n 's/.*://p' "$work/agent.out" | head -n 1)"
# Each line the host prints, stamped with the time it came.
"${isolated[@]}" "$build/tools/vexa-host/vexa-host" --port "$port" --install-path "$home" |
  while IFS= read -r line; do echo "$EPOCHREALTIME $line"; done > "$work/host.log" &
pids+=($!)
for _ in $(seq 1200); do grep -q TrashSizeChange "$work/host.log" && break; sleep 0.05; done
sleep 2  # the start is over
ticks=$(getconf CLK_TCK)
cpu() { awk '{print $14 + $15}' "/proc/$agent/stat"; }
before_lines=$(wc -l < "$work/host.log")
before_cpu=$(cpu)
rm_start=$EPOCHREALTIME
find "$trash/files" "$trash/info" -mindepth 1 -delete
rm_end=$EPOCHREALTIME
for _ in $(seq 600); do grep -q '"Used":0[,}]' "$work/host.log" && break; sleep 0.05; done
sleep 3  # anything later would show here
after_cpu=$(cpu)
messages=$(tail -n +$(( before_lines + 1 )) "$work/host.log" | grep -c TrashSizeChange || true)
last=$(grep TrashSizeChange "$work/host.log" | tail -n 1 | cut -d' ' -f1)
agent_cpu=$(awk -v t=$(( after_cpu - before_cpu )) -v hz="$ticks" 'BEGIN {printf "%.2f", t / hz}')
echo "empty: $entries entries, rm took $(awk -v a="$rm_start" -v b="$rm_end" 'BEGIN {printf "%.2f", b - a}') s;" \
  "size messages after it began: $messages; last $(grep TrashSizeChange "$work/host.log" | tail -n 1 | sed 's/^[^ ]* //')"
echo "empty: last message $(awk -v a="$last" -v b="$rm_end" 'BEGIN {printf "%.3f", a - b}') s after rm ended;" \
  "agent CPU ${agent_cpu} s, one du ${du_cpu} s: ratio $(ratio "$agent_cpu" "$du_cpu")"
kill "$agent" 2>/dev/null || true

# ---- rescan ----
apps="$work/applications"
[ -d "$apps" ] || "$probe" make-apps "$apps" 2000 200
find_listing() { find "$apps" -name '*.app' -prune -print -o -name '*.desktop' -print; }
find_listing >/dev/null
find_times=()
for _ in 1 2 3 4 5; do find_times+=("$( { time find_listing >/dev/null; } 2>&1 | cut -d' ' -f1)"); done
listed=$(find_listing | wc -l)
read -r found ours < <("$probe" rescan "$apps" 5 | sed 's/apps=\([0-9]*\) seconds=\([0-9.]*\)/\1 \2/')
find_median=$(printf '%s\n' "${find_times[@]}" | median)
echo "rescan: find listed $listed in ${find_median} s (median of 5), ours found $found in ${ours} s;" \
  "ours/find = $(ratio "$ours" "$find_median")"
