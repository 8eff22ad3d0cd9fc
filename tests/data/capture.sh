#!/usr/bin/env bash
# capture.sh NAME: copies the /proc, /sys and /etc files the status samplers read from this
# machine into machines/NAME, as the kernel wrote them (values keep their trailing new line).
# Unreadable files are left out. Process folders become empty files (only their count is
# read); the machine id is replaced by a fixed one and passwd keeps root and the caller.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
out="$here/machines/${1:?usage: capture.sh NAME}"
mkdir -p "$out"

copy() {
  local path
  for path in "$@"; do
    [ -f "$path" ] && [ -r "$path" ] || continue
    mkdir -p "$out$(dirname "$path")"
    cat "$path" >"$out$path" 2>/dev/null || rm -f "$out$path"
  done
}

copy /proc/meminfo /proc/vmstat /proc/stat /proc/loadavg /proc/swaps /proc/cpuinfo \
  /proc/pressure/memory /proc/sys/kernel/hostname /proc/sys/kernel/osrelease \
  /proc/device-tree/model /etc/os-release /etc/machine-info
copy /sys/devices/system/cpu/online /sys/devices/system/cpu/cpu0/cpufreq/base_frequency \
  /sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq \
  /sys/devices/system/memory/block_size_bytes /sys/devices/system/memory/memory*/state
copy /sys/class/dmi/id/product_name /sys/class/dmi/id/product_serial /sys/class/dmi/id/product_uuid
copy /sys/block/zram*/mm_stat /sys/block/dm-*/dm/name /sys/block/dm-*/dm/uuid
for chip in /sys/class/hwmon/*; do
  copy "$chip/name" "$chip"/temp*_input "$chip"/temp*_label
done
copy /sys/class/thermal/thermal_zone*/type /sys/class/thermal/thermal_zone*/temp
# This shell's memory cgroup, v1 or v2, kept at the path /proc/self/cgroup names.
copy /proc/self/cgroup
v1="$(sed -n 's/^[0-9]*:memory:\(.*\)$/\1/p' /proc/self/cgroup)"
v2="$(sed -n 's/^0::\(.*\)$/\1/p' /proc/self/cgroup)"
copy "/sys/fs/cgroup/memory$v1/memory.limit_in_bytes" "/sys/fs/cgroup/memory$v1/memory.usage_in_bytes" \
  /sys/fs/cgroup/memory/memory.limit_in_bytes /sys/fs/cgroup/memory/memory.usage_in_bytes
for file in memory.max memory.high memory.current memory.stat; do copy "/sys/fs/cgroup$v2/$file"; done

for pid in $(ls /proc | grep -E "^[0-9]+$" | head -5); do : >"$out/proc/$pid"; done
echo 0123456789abcdef0123456789abcdef >"$out/etc/machine-id"
grep -E "^root:|^$(id -un):" /etc/passwd >"$out/etc/passwd"
echo "captured into $out"
