#!/usr/bin/env bash
# Process sampling against its peers, in one run, with CHILDREN (default 2,000) extra sleeping
# processes started here and killed by pid at the end:
#   sample  one ProcessStatus sample of ten applications, read from /proc in process, against
#           the same sample through procps ps -p (one child per sample) and psutil's oneshot()
#           of the same ten processes;
#   screen  one vexa-top screen of the user's processes against top -b -n 1 (its CPU time) and
#           a plain loop over stat and statm of every process (the floor).
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
build="${BUILD:-$top/build}"
"$top/scripts/setup.sh"
"$top/scripts/build.sh" "$build" "" vexa_bench >/dev/null
. "$top/bench/status/peers-lib.sh"

pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true' EXIT
for _ in $(seq "${CHILDREN:-2000}"); do
  sleep 3600 &
  pids+=($!)
done
echo "processes: $(ls /proc | grep -c '^[0-9]')"

run_bench 'ProcessSample10_(proc|ps)|TopScreen_(user|statLoop)'
ours=$(us ProcessSample10_proc)
ps=$(us ProcessSample10_ps)
ten="${pids[*]:0:10}"
oneshot=$(/usr/bin/python3 -c 'import psutil, sys, timeit
procs = [psutil.Process(int(p)) for p in sys.argv[1:]]
def sample():
    for p in procs:
        with p.oneshot():
            p.cpu_percent(); p.memory_percent(); p.memory_info(); p.status()
print("%.2f" % (min(timeit.repeat(sample, number=200, repeat=5)) / 200 * 1e6))' $ten)
echo "sample of 10: ours ${ours} us, ps ${ps} us, psutil oneshot ${oneshot} us"
echo "  ps/ours $(ratio "$ps" "$ours")   ours/psutil $(ratio "$ours" "$oneshot")"

screen=$(us TopScreen_user)
loop=$(us TopScreen_statLoop)
top_cpu=$(/usr/bin/python3 -c 'import os, subprocess
before = os.times()
subprocess.run(["top", "-b", "-n", "1"], stdout=subprocess.DEVNULL, check=True)
after = os.times()
print("%.2f" % (((after.children_user - before.children_user) +
                 (after.children_system - before.children_system)) * 1e6))')
echo "screen: ours ${screen} us, stat+statm loop ${loop} us, top -b -n 1 ${top_cpu} us of CPU"
echo "  ours/loop $(ratio "$screen" "$loop")   top/ours $(ratio "$top_cpu" "$screen")"
