# What the status peer scripts share; sourced, with $build set.

# run_bench FILTER: runs the Google benchmarks matching FILTER, keeping their JSON in $bench.
run_bench() {
  local out
  out="$(mktemp)"
  "$build/bench/vexa_bench" --benchmark_filter="$1" --benchmark_min_time=2 \
    --benchmark_out="$out" --benchmark_out_format=json >/dev/null 2>&1
  bench="$(cat "$out")"
  rm -f "$out"
}
us() {  # us NAME: the benchmark's real time per iteration in microseconds
  /usr/bin/python3 -c 'import json,sys
for b in json.load(sys.stdin)["benchmarks"]:
    if b["name"] == sys.argv[1]:
        scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3}[b["time_unit"]]
        print("%.2f" % (b["real_time"] * scale))' "$1" <<<"$bench"
}
psutil_us() {  # psutil_us EXPRESSION [RUNNER...]: microseconds per call, best of 5
  local expression="$1"
  shift
  "$@" /usr/bin/python3 -c 'import psutil, timeit, sys
n = 500
print("%.2f" % (min(timeit.repeat(sys.argv[1], "import psutil", number=n, repeat=5)) / n * 1e6))' \
    "$expression"
}
ratio() { /usr/bin/python3 -c 'import sys; print("%.2f" % (float(sys.argv[1]) / float(sys.argv[2])))' "$1" "$2"; }
