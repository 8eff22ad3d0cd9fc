#!/usr/bin/env bash
# The agent's application figures, in one run:
#   latency  time from a bundle's creation to the "InstallCommand" line at vexa-host, 20 times
#            (the event stream's 1.0 s latency included), in a home folder of its own;
#   idle     the agent's resident memory and CPU time over IDLE_SECONDS (default 60) idle seconds
#            while it watches IDLE_HOME (default: the real home folder), restarted over its
#            cache, with the number of folders it watches.
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
"$top/scripts/setup.sh"
"$top/scripts/build.sh" "$top/build" "" vexa-agent vexa-host >/dev/null
agent="$top/build/tools/vexa-agent/vexa-agent"
host="$top/build/tools/vexa-host/vexa-host"
idle_home="${IDLE_HOME:-$HOME}"
idle_seconds="${IDLE_SECONDS:-60}"

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
wait_for() {  # wait_for COMMAND...: up to 60 s
  for _ in $(seq 1200); do "$@" && return 0; sleep 0.05; done
  echo "agent-bench: gave up waiting for: $*" >&2; exit 1
}
start_agent() {  # start_agent LOG ARGS...: starts the agent, sets agent_pid and port
  local log="$1"; shift
  "${agent_cmd[@]}" --port 0 "$@" > "$log" 2>/dev/null &
  agent_pid=$!
  pids+=("$agent_pid")
  wait_for grep -q listening "$log"
  port="$(sed -n 's/.*://p' "$log" | head -n 1)"
}

# ---- latency ----
# A home folder of its own, so the bundles made here touch nothing real.
home="$work/home"
isolated=(env HOME="$home" XDG_DATA_HOME="$home/.local/share" XDG_DATA_DIRS="$work/sys"
          XDG_CACHE_HOME="$home/.cache" XDG_CONFIG_HOME="$home/.config")
mkdir -p "$home/Applications" "$home/.local/share/applications" "$work/sys/applications"
agent_cmd=("${isolated[@]}" "$agent")
start_agent "$work/agent.out" --cache "$work/cache"
latency_agent=$agent_pid
mkfifo "$work/host.out"
"${isolated[@]}" "$host" --port "$port" --install-path "$home" > "$work/host.out" &
pids+=($!)
exec 3< "$work/host.out"
read -r _greeting <&3
times=()
for i in $(seq 20); do
  bundle="$home/Applications/Bench$i.app"
  start=$(date +%s%N)
  mkdir -p "$bundle/Contents/MacOS"
  printf '<plist><dict><key>CFBundleIdentifier</key><string>org.bench.App%d</string></dict></plist>' \
    "$i" > "$bundle/Contents/Info.plist"
  while read -r line <&3; do
    case "$line" in *InstallCommand*"Bench$i.app"*) break ;; esac
  done
  end=$(date +%s%N)
  times+=($(( (end - start) / 1000000 )))
done
exec 3<&-
kill "$latency_agent" 2>/dev/null || true
sorted=($(printf '%s\n' "${times[@]}" | sort -n))
echo "latency: creation -> InstallCommand at vexa-host, 20 bundles (ms): ${times[*]}"
echo "latency: median $(( (sorted[9] + sorted[10]) / 2 )) ms, min ${sorted[0]} ms, max ${sorted[19]} ms"

# ---- idle ----
ticks_per_second=$(getconf CLK_TCK)
# Measured on a restart, as the agent usually runs: the first start took the inventory (and
# decoded icons, which maps the image loaders' libraries for good); this one reads its cache.
agent_cmd=(env HOME="$idle_home" "$agent")
start_agent "$work/first.out" --cache "$work/idle-cache"
first_rss=$(awk '/VmRSS/ {print $2}' "/proc/$agent_pid/status")
kill "$agent_pid"
wait "$agent_pid" 2>/dev/null || true
start_agent "$work/idle.out" --cache "$work/idle-cache"
sleep 2  # the start is over: cache read, watches set
cpu() { awk '{print $14 + $15}' "/proc/$agent_pid/stat"; }
rss() { awk '/VmRSS/ {print $2}' "/proc/$agent_pid/status"; }
anon() { awk '/RssAnon/ {print $2}' "/proc/$agent_pid/status"; }
pss() { awk '/^Pss:/ {print $2}' "/proc/$agent_pid/smaps_rollup"; }
watches=$(cat /proc/"$agent_pid"/fdinfo/* 2>/dev/null | grep -c '^inotify wd:' || true)
before=$(cpu)
sleep "$idle_seconds"
after=$(cpu)
echo "idle: watching $idle_home ($watches folders), ${idle_seconds} s: CPU $(( after - before )) ticks" \
  "(1 tick = $(( 1000 / ticks_per_second )) ms), resident $(rss) KiB" \
  "(anonymous $(anon) KiB, proportional $(pss) KiB; the rest is shared libraries)," \
  "threads $(ls /proc/"$agent_pid"/task | wc -l); resident after the first start was $first_rss KiB"
