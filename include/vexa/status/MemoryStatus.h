#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/status/MemoryDelegate.h"

namespace vexa {

class KeptFile;
class MachineFiles;
class PagingDeltas;
class SamplerTimer;

// Samples the machine's memory every freshInterval seconds (1 by default) on the run loop of
// the thread that created it or last changed the interval, and hands the figures to its
// delegate:
//
//   memory (bytes): "memory_total" (MemTotal), "memory_free" (free + inactive), "memory_used"
//     (active + wired + compressed), "memory_active", "memory_inactive", "memory_wired" (what
//     the kernel holds outside those), "memory_freepage" (MemFree), "memory_compressed" (zswap
//     and zram memory), "memory_uncompressed" (what they hold).
//   vm (counters): "vm_pageins"/"vm_pageouts" (pages), "vm_faults", "vm_compressions"/
//     "vm_decompressions" (zswap stores and loads), "vm_deltapageins"/"vm_deltapageouts".
//     "vm_hits", "vm_lookups", "vm_cowfaults", "vm_purges", "vm_purgeablecount" and
//     "vm_speculativecount" have no Linux counter and are always 0.
//   swap, on the first sample only: "swap_path" and "swap_prefix" (of the first active swap
//     area), "swap_count", "swap_countpeak", "swap_size", "swap_used" (bytes),
//     "swap_encrypted" (every area is on dm-crypt).
class VEXA_EXPORT MemoryStatus : public std::enable_shared_from_this<MemoryStatus> {
 public:
  // The process's sampler of this machine; null when /proc/meminfo cannot be read.
  static MemoryStatus* shared();
  // A sampler of the machine under `root` (a fixture tree in tests), sampling every second on
  // the calling thread's run loop; null when its meminfo cannot be read.
  static std::shared_ptr<MemoryStatus> create(const std::string& root = "/");
  ~MemoryStatus();
  MemoryStatus(const MemoryStatus&) = delete;
  MemoryStatus& operator=(const MemoryStatus&) = delete;

  void setFreshInterval(int32_t seconds);
  int32_t freshInterval() const;
  // One sample now, on the calling thread. A failed read reports nothing.
  void updateInfo();
  // The swap dictionary on the first call, nothing afterwards.
  std::optional<nlohmann::json> swapStats();
  void initializeSwapPath();

  // Cleans memory on a worker of the global queue and returns at once: purges first when
  // usedPercent is 0.95 or more, then fills memory in the vexa-memclean child for up to ten
  // seconds, stopping it when *flag becomes 1 (the caller keeps the flag alive until
  // clearMemoryCompleted). Cleanings of one sampler never overlap.
  void clearMemory(int32_t* flag);
  // Drops the page cache through the privileged helper: its answer, 0 without a purger.
  int32_t runPurge();
  // Who purges: the layer that owns the privileged helper registers it.
  static void setPurger(std::function<int32_t()> purger);
  // Touches the budget's bytes twice in this process.
  void free();
  // Reads the memory-info record again; false when meminfo cannot be read.
  bool freshMemoryInfo();

  std::shared_ptr<MemoryDelegate> delegate() const;
  void setDelegate(std::shared_ptr<MemoryDelegate> delegate);
  // Installed memory: online memory blocks times their size, else MemTotal.
  uint64_t physicalMemory() const { return physicalMemory_; }
  void setPhysicalMemory(uint64_t bytes) { physicalMemory_ = bytes; }
  // (active + wired) / total of the last sample with a delegate, 0 at first.
  double usedPercent() const { return usedPercent_.load(); }
  std::optional<std::string> swapPath() const;
  std::optional<std::string> swapPrefix() const;

 private:
  explicit MemoryStatus(std::shared_ptr<MachineFiles> files);

  std::shared_ptr<MachineFiles> files_;
  std::unique_ptr<SamplerTimer> timer_;
  std::unique_ptr<PagingDeltas> paging_;
  mutable std::mutex memoryUsageLock_;
  std::shared_ptr<MemoryDelegate> delegate_;
  // The files every sample reads, kept open; zram devices are looked for again now and then.
  std::unique_ptr<KeptFile> meminfo_;
  std::unique_ptr<KeptFile> vmstat_;
  std::vector<std::unique_ptr<KeptFile>> zram_;
  unsigned samplesSinceZramScan_ = 0;
  nlohmann::json memoryDictionary_, vmDictionary_;  // by memoryUsageLock_
  std::atomic<uint64_t> physicalMemory_{0};
  std::atomic<double> usedPercent_{0};
  mutable std::mutex swapLock_;
  std::optional<std::string> swapPath_;
  std::optional<std::string> swapPrefix_;
  uint32_t peakSwapFiles_ = 0;
  std::mutex cleaningLock_;
  std::mutex infoLock_;
  uint64_t infoFree_ = 0;
  uint64_t infoInactive_ = 0;
};

}  // namespace vexa
