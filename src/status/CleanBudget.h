#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "status/ProcParsers.h"

namespace vexa {

class MachineFiles;

// How much memory a cleaning pass may touch. Touching more than the kernel can give without
// reclaiming wakes the OOM killer, so the budget is the smallest of MemFree, MemAvailable less
// a reserve, and the memory cgroup's headroom less the same reserve, in whole 256 MiB chunks.
class CleanBudget {
 public:
  static constexpr uint64_t kChunkBytes = uint64_t{1} << 28;

  // max(5 % of MemTotal, 256 MiB).
  static uint64_t reserve(uint64_t memTotal);
  // The chunk count for a meminfo reading and an optional cgroup headroom; 0 when a key is
  // missing or any figure is under the reserve.
  static uint64_t chunks(const KernelTable& meminfo, std::optional<uint64_t> headroom);

  // Bytes the process's memory cgroup may still grow by: v1 limit − usage, else v2 the lower of
  // memory.max and memory.high − memory.current; nothing when unlimited or unknown.
  static std::optional<uint64_t> cgroupHeadroom(const MachineFiles& files);
  // The v2 folder of the process's cgroup ("/sys/fs/cgroup/user.slice/..."), when it has one.
  static std::optional<std::string> cgroupV2Folder(const MachineFiles& files);

  // True when /proc/pressure/memory says tasks stalled on memory more than 10 % of the last
  // 10 seconds ("some avg10").
  static bool pressureTooHigh(std::string_view psi);

  // Everything above for the machine: the chunk count now.
  static uint64_t chunksNow(const MachineFiles& files);
  // True when a pass should stop: memory pressure, or MemAvailable under the reserve.
  static bool shouldStop(const MachineFiles& files);
};

}  // namespace vexa
