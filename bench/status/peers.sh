#!/usr/bin/env bash
# The status samplers against psutil and the read floor, in one run:
#   memory   one MemoryStatus sample vs psutil virtual_memory() + swap_memory() vs pread of
#            /proc/meminfo and /proc/vmstat on descriptors kept open (the floor);
#   cpu      one CPUStatus sample vs psutil cpu_times(percpu=True);
#   idle     vexa-status running only the three samplers (memory, cpu, system) every second
#            for IDLE_SECONDS (default 60): its CPU time as a share of one core.
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
build="${BUILD:-$top/build}"
"$top/scripts/setup.sh"
"$top/scripts/build.sh" "$build" "" vexa_bench vexa-status >/dev/null
idle_seconds="${IDLE_SECONDS:-60}"

. "$top/bench/status/peers-lib.sh"
run_bench '(Memory|Cpu)Sample'

memory=$(us MemorySample/library)
floor=$(us MemorySample/floor)
cpu=$(us CpuSample/library)
cpu_floor=$(us CpuSample/floor)
ps_memory=$(psutil_us "psutil.virtual_memory(); psutil.swap_memory()")
ps_cpu=$(psutil_us "psutil.cpu_times(percpu=True)")

echo "memory sample: vexa ${memory} us, psutil ${ps_memory} us, floor ${floor} us"
echo "  vexa/psutil $(ratio "$memory" "$ps_memory")   vexa/floor $(ratio "$memory" "$floor")"
echo "cpu sample:    vexa ${cpu} us, psutil ${ps_cpu} us, floor ${cpu_floor} us"
echo "  vexa/psutil $(ratio "$cpu" "$ps_cpu")   vexa/floor $(ratio "$cpu" "$cpu_floor")"

"$build/tools/vexa-status/vexa-status" --json --interval 1 --only memory,cpu,system >/dev/null &
pid=$!
trap 'kill $pid 2>/dev/null || true' EXIT
sleep 1
# Two clocks: the process's CPU ticks (threads that ended included, 1/CLK_TCK s each) and the
# nanoseconds each living thread has run (schedstat), exact while no thread starts or ends.
cpu_ns() { cat /proc/"$pid"/task/*/schedstat | awk '{ s += $1 } END { printf "%d", s }'; }
threads() { ls /proc/"$pid"/task | tr '\n' ' '; }
read -r -a start < <(cut -d' ' -f14,15 "/proc/$pid/stat")
start_ns=$(cpu_ns)
start_threads=$(threads)
sleep "$idle_seconds"
read -r -a end < <(cut -d' ' -f14,15 "/proc/$pid/stat")
end_ns=$(cpu_ns)
end_threads=$(threads)
ticks=$(( (end[0] + end[1]) - (start[0] + start[1]) ))
hz=$(getconf CLK_TCK)
same=$([ "$start_threads" = "$end_threads" ] && echo 1 || echo 0)
/usr/bin/python3 -c 'import sys
t, hz, s, ns, same = map(float, sys.argv[1:])
print("idle: three samplers at 1 s for %d s: %.0f ticks, %.3f %% of a core" % (s, t, 100 * t / hz / s))
if same:
    print("idle: by schedstat %.4f %% of a core (%.1f ms)" % (100 * ns / 1e9 / s, ns / 1e6))
else:
    print("idle: threads started or ended meanwhile; schedstat figure left out")' \
  "$ticks" "$hz" "$idle_seconds" "$((end_ns - start_ns))" "$same"
