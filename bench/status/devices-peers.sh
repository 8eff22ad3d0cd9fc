#!/usr/bin/env bash
# The disk, network and battery samplers against psutil and their floors, in one run:
#   disk     one DiskStatus sample vs psutil disk_partitions() + disk_usage() of each vs df -T;
#   network  one NetworkStatus sample vs psutil net_io_counters(pernic=True) vs pread of
#            /proc/net/dev on a descriptor kept open (the floor);
#   battery  one BatteryStatus sample vs psutil sensors_battery(), both under umockdev on the
#            same device tree (bench/status/battery.umockdev: a charger and a battery), and the
#            time from a charger plugged in (attribute written, udev announcement sent) to the
#            delegate's call.
set -euo pipefail
top="$(cd "$(dirname "$0")/../.." && pwd)"
build="${BUILD:-$top/build}"
"$top/scripts/setup.sh"
"$top/scripts/build.sh" "$build" "" vexa_bench devices-probe >/dev/null
tree="$top/bench/status/battery.umockdev"
# No power daemon: both sides read the files.
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent

. "$top/bench/status/peers-lib.sh"
run_bench '(Disk|Network)Sample'

disk=$(us DiskSample/library)
ps_disk=$(psutil_us "[psutil.disk_usage(p.mountpoint) for p in psutil.disk_partitions()]")
df_us=$(/usr/bin/python3 -c 'import subprocess, time
n = 100
t = time.perf_counter()
for _ in range(n): subprocess.run(["df", "-T"], stdout=subprocess.DEVNULL, check=True)
print("%.2f" % ((time.perf_counter() - t) / n * 1e6))')
echo "disk sample:    vexa ${disk} us, psutil ${ps_disk} us, df -T ${df_us} us"
echo "  vexa/psutil $(ratio "$disk" "$ps_disk")   vexa/df $(ratio "$disk" "$df_us")"

network=$(us NetworkSample/library)
net_floor=$(us NetworkSample/floor)
ps_network=$(psutil_us "psutil.net_io_counters(pernic=True)")
echo "network sample: vexa ${network} us, psutil ${ps_network} us, floor ${net_floor} us"
echo "  vexa/psutil $(ratio "$network" "$ps_network")   vexa/floor $(ratio "$network" "$net_floor")"

probe="$(umockdev-wrapper "$build/bench/devices-probe" battery "$tree")"
battery=$(sed -n 's/^sample_us=//p' <<<"$probe")
ps_battery=$(psutil_us "psutil.sensors_battery()" umockdev-run -d "$tree" --)
echo "battery sample (umockdev): vexa ${battery} us, psutil ${ps_battery} us"
echo "  vexa/psutil $(ratio "$battery" "$ps_battery")"
echo "charger plugged in -> delegate (umockdev): $(sed -n 's/^latency_ms //p' <<<"$probe") ms"
