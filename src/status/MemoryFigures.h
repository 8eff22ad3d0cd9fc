#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "status/ProcParsers.h"

namespace vexa {

// One reading of the machine's memory in bytes. free, active and inactive are the kernel's
// MemFree, Active and Inactive; compressed is what zswap and zram hold (their own memory) and
// uncompressed what they stand for; wired is the rest of MemTotal (kernel, page tables, slab,
// buffers...), never below 0.
struct MemorySample {
  uint64_t total = 0;
  uint64_t free = 0;
  uint64_t active = 0;
  uint64_t inactive = 0;
  uint64_t wired = 0;
  uint64_t compressed = 0;
  uint64_t uncompressed = 0;

  // The meminfo keys a sample reads.
  static constexpr std::array<std::string_view, 6> kMeminfoKeys = {
      "MemTotal", "MemFree", "Active", "Inactive", "Zswap", "Zswapped"};
  // Nothing when meminfo lacks MemTotal, MemFree, Active or Inactive.
  static std::optional<MemorySample> from(const KernelTable& meminfo,
                                          const std::vector<ZramUsage>& zram);
  // (active + wired) / total: compressed memory counts in the total only.
  double usedFraction() const;
  // The memory dictionary ("memory_total" ... "memory_uncompressed").
  nlohmann::json dictionary() const;
  // The same, written over `dictionary` in place (see assignFigures).
  void fill(nlohmann::json& dictionary) const;
};

// Writes each (key, value) into the object `dictionary` (made an object when it is not one). A
// key already there keeps its entry and takes the new value, so a sampler that reports the same
// keys every second allocates nothing once its dictionary is built.
void assignFigures(nlohmann::json& dictionary,
                   std::initializer_list<std::pair<std::string_view, uint64_t>> figures);

// Page-in and page-out counters between samples: a counter lower than the last one (and the
// first sample) reports its whole value as the change.
class PagingDeltas {
 public:
  // The vmstat keys the dictionary reads.
  static constexpr std::array<std::string_view, 5> kVmstatKeys = {"pgpgin", "pgpgout", "pgfault",
                                                                  "zswpin", "zswpout"};
  // The virtual-memory dictionary of a vmstat reading. pgpgin/pgpgout are counted in KiB by
  // the kernel and reported in pages of `pageSize` bytes.
  nlohmann::json dictionary(const KernelTable& vmstat, uint64_t pageSize);
  // The same, written over `dictionary` in place (see assignFigures).
  void fill(nlohmann::json& dictionary, const KernelTable& vmstat, uint64_t pageSize);

 private:
  uint64_t lastPageIn_ = 0;
  uint64_t lastPageOut_ = 0;
};

// The swap dictionary from /proc/swaps: "swap_path" and its prefix come from the first entry
// (else "/" and "swapfile"), count and sizes from all of them; "swap_encrypted" when every
// entry is dm-crypt. `peak` keeps the largest count seen.
struct SwapLocation {
  std::string path;
  std::string prefix;
  static SwapLocation of(const std::vector<SwapEntry>& entries);
};
nlohmann::json swapDictionary(const std::vector<SwapEntry>& entries, bool encrypted,
                              uint32_t& peak);

}  // namespace vexa
